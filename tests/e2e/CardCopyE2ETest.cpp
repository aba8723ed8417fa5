// File operations and the copy engine on real exFAT cards on loop devices.

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <thread>

#include "CardTest.h"
#include "CopyDelegate.h"
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

TEST_F(CardCopyE2ETest, FileOperationsOnACaseInsensitiveCard) {
    const auto card = mountCard("A001 CARD");
    ASSERT_TRUE(card);
    const QString root = card->mountPoint();

    // exFAT keeps case but ignores it: the new name "exists" already.
    TestFiles::write(root + "/DCIM/Clip.MOV", "clip");
    ASSERT_TRUE(QVFileManager::moveFile(root + "/DCIM/Clip.MOV", root + "/DCIM/clip.mov", 5));
    EXPECT_EQ(QDir(root + "/DCIM").entryList(QDir::Files), QStringList({"clip.mov"}));
    EXPECT_EQ(TestFiles::read(root + "/DCIM/clip.mov"), "clip");

    TestFiles::write(root + "/DCIM/other.mov", "other");
    EXPECT_FALSE(QVFileManager::moveFile(root + "/DCIM/other.mov", root + "/DCIM/CLIP.MOV", false))
        << "a move never replaces another file";
    EXPECT_EQ(TestFiles::read(root + "/DCIM/clip.mov"), "clip");
    EXPECT_EQ(TestFiles::read(root + "/DCIM/other.mov"), "other");
}

TEST_F(CardCopyE2ETest, ACardThatFillsUpIsReportedAndTheOtherCopyIsWhole) {
    const auto card = mountCard("FULL");
    ASSERT_TRUE(card);
    const QByteArray clip = TestFiles::randomBytes(80 * 1024 * 1024 + 11, 1);
    const QString source = workPath("source/A001C001.MXF");
    TestFiles::write(source, clip);
    const QString onCard = card->mountPoint() + "/CLIP/A001C001.MXF";
    const QString onDisk = workPath("backup/CLIP/A001C001.MXF");

    SystemLog::Capture log;
    FailureRecorder delegate;
    QVFileManager::copyFileWithProgress(source, {onCard, onDisk}, VerificationType::MD5, &delegate);
    EXPECT_EQ(delegate.failed, QStringList({onCard}));
    EXPECT_FALSE(log.lines().filter("Error writing file " + onCard).isEmpty());
    EXPECT_EQ(TestFiles::read(onDisk), clip);
}

TEST_F(CardCopyE2ETest, SeveralCardsOffloadAtOnce) {
    const auto first = mountCard("CARD_A");
    const auto second = mountCard("CARD_B");
    ASSERT_TRUE(first && second);
    const QByteArray a = TestFiles::randomBytes(20 * 1024 * 1024 + 3, 2);
    const QByteArray b = TestFiles::randomBytes(12 * 1024 * 1024 + 5, 3);
    TestFiles::write(first->mountPoint() + "/CLIP/A.MXF", a);
    TestFiles::write(second->mountPoint() + "/CLIP/B.MXF", b);

    bool results[2] = {};
    FailureRecorder delegates[2];
    std::thread copyA([&] {
        results[0] = QVFileManager::copyFileWithProgress(
            first->mountPoint() + "/CLIP/A.MXF",
            {workPath("d1/CARD_A/A.MXF"), workPath("d2/CARD_A/A.MXF")}, VerificationType::SHA1,
            &delegates[0]);
    });
    std::thread copyB([&] {
        results[1] = QVFileManager::copyFileWithProgress(
            second->mountPoint() + "/CLIP/B.MXF",
            {workPath("d1/CARD_B/B.MXF"), workPath("d2/CARD_B/B.MXF")}, VerificationType::SHA1,
            &delegates[1]);
    });
    copyA.join();
    copyB.join();
    EXPECT_TRUE(results[0] && results[1]);
    EXPECT_TRUE(delegates[0].failed.isEmpty() && delegates[1].failed.isEmpty());
    for (const char* destination : {"d1", "d2"}) {
        EXPECT_EQ(TestFiles::read(workPath(QString::fromLatin1(destination) + "/CARD_A/A.MXF")), a);
        EXPECT_EQ(TestFiles::read(workPath(QString::fromLatin1(destination) + "/CARD_B/B.MXF")), b);
    }
}
