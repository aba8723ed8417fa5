// File operations and the copy engine on real exFAT cards on loop devices.

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <thread>

#include "CardTest.h"
#include "CopyDelegate.h"
#include "FileLayer.h"
#include "LoopCard.h"
#include "QVFileManager.h"
#include "SystemLog.h"
#include "TestFiles.h"

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

TEST_F(CardCopyE2ETest, SeveralCardsOffloadAtOnce) {
    const std::unique_ptr<LoopCard> cards[2] = {mountCard("CARD_A"), mountCard("CARD_B")};
    ASSERT_TRUE(cards[0] && cards[1]);
    const QByteArray clips[2] = {TestFiles::randomBytes(20 * 1024 * 1024 + 3, 2),
                                 TestFiles::randomBytes(12 * 1024 * 1024 + 5, 3)};
    const auto copyOf = [&](const char* destination, int c) {
        return workPath(QStringLiteral("%1/%2/clip.MXF").arg(destination).arg(c));
    };
    bool results[2] = {};
    FailureRecorder delegates[2];
    std::vector<std::thread> copies;
    for (int c = 0; c < 2; ++c) {
        const QString source = cards[c]->mountPoint() + "/CLIP/clip.MXF";
        TestFiles::write(source, clips[c]);
        copies.emplace_back([&, c, source] {
            results[c] = QVFileManager(FileLayer::posix())
                             .copyFileWithProgress(source, {copyOf("d1", c), copyOf("d2", c)},
                                                   VerificationType::SHA1, &delegates[c]);
        });
    }
    for (int c = 0; c < 2; ++c) {
        copies[c].join();
        EXPECT_TRUE(results[c] && delegates[c].failed.isEmpty());
        EXPECT_EQ(TestFiles::read(copyOf("d1", c)), clips[c]);
        EXPECT_EQ(TestFiles::read(copyOf("d2", c)), clips[c]);
    }
}
