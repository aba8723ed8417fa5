// Moves on a real exFAT card, which keeps the case of names but ignores it.

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>

#include "CardTest.h"
#include "FileLayer.h"
#include "QVFileManager.h"
#include "TestFiles.h"

class CardCopyE2ETest : public CardTest {};

TEST_F(CardCopyE2ETest, AMoveOnACaseInsensitiveCardRenamesButNeverReplaces) {
    const auto card = mountCard("A001 CARD");
    ASSERT_TRUE(card);
    const QString root = card->mountPoint();

    // exFAT keeps case but ignores it: the new name "exists" already.
    TestFiles::write(root + "/DCIM/Clip.MOV", "clip");
    ASSERT_TRUE(QVFileManager(FileLayer::posix())
                    .moveFile(root + "/DCIM/Clip.MOV", root + "/DCIM/clip.mov", 5));
    EXPECT_EQ(QDir(root + "/DCIM").entryList(QDir::Files), QStringList({"clip.mov"}));
    EXPECT_EQ(TestFiles::read(root + "/DCIM/clip.mov"), "clip");

    TestFiles::write(root + "/DCIM/other.mov", "other");
    EXPECT_FALSE(QVFileManager(FileLayer::posix())
                     .moveFile(root + "/DCIM/other.mov", root + "/DCIM/CLIP.MOV", false))
        << "a move never replaces another file";
    EXPECT_EQ(TestFiles::read(root + "/DCIM/clip.mov"), "clip");
    EXPECT_EQ(TestFiles::read(root + "/DCIM/other.mov"), "other");
}
