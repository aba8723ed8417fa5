// File operations and the copy engine on real exFAT cards on loop devices.

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>

#include "CardTest.h"
#include "CopyDelegate.h"
#include "FileLayer.h"
#include "QVFileManager.h"
#include "SystemLog.h"
#include "TestFiles.h"
#include "TestMount.h"

namespace {

class FailureRecorder : public CopyDelegate {
  public:
    void fileCopyVerificationFailed(const std::shared_ptr<CopyInfo>&,
                                    const QString& file) override {
        failed << file;
    }
    QStringList failed;
};

}  // namespace

class CardCopyE2ETest : public CardTest {};

TEST_F(CardCopyE2ETest, FileOperationsOnACaseInsensitiveCardThatFillsUp) {
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

    // Filled up, the card's copy is reported and the other copy is whole.
    const QByteArray clip = TestFiles::randomBytes(80 * 1024 * 1024 + 11, 1);
    const QString source = workPath("source/A001C001.MXF");
    TestFiles::write(source, clip);
    const QString onCard = root + "/CLIP/A001C001.MXF";
    const QString onDisk = workPath("backup/CLIP/A001C001.MXF");

    SystemLog::Capture log;
    FailureRecorder delegate;
    QVFileManager(FileLayer::posix())
        .copyFileWithProgress(source, {onCard, onDisk}, VerificationType::MD5, &delegate);
    EXPECT_EQ(delegate.failed, QStringList({onCard}));
    EXPECT_FALSE(log.lines().filter("Error writing file " + onCard).isEmpty());
    EXPECT_EQ(TestFiles::read(onDisk), clip);
}
