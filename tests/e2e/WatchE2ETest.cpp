// cardsweep-cli watch against a real card: mounted while it runs, listed, recognised,
// transferred, verified, ejected; and a clean stop on SIGTERM.
#include <gtest/gtest.h>

#include <QDeadlineTimer>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QThread>
#include <mutex>
#include <thread>

#include "LoopCard.h"
#include "QVTask.h"
#include "TempHome.h"
#include "TestFiles.h"

namespace {

// Collects a child's output on a thread of its own.
class Output {
  public:
    explicit Output(QVTask& task)
        : reader_([this, &task] {
              for (QByteArray piece = task.readOutput(); !piece.isEmpty();
                   piece = task.readOutput()) {
                  const std::lock_guard lock(mutex_);
                  text_ += QString::fromUtf8(piece);
              }
          }) {}
    ~Output() { reader_.join(); }
    QString text() const {
        const std::lock_guard lock(mutex_);
        return text_;
    }
    bool waitFor(const QString& needle, int seconds) const {
        const QDeadlineTimer deadline(seconds * 1000);
        while (!text().contains(needle)) {
            if (deadline.hasExpired())
                return false;
            QThread::msleep(50);
        }
        return true;
    }

  private:
    mutable std::mutex mutex_;
    QString text_;
    std::thread reader_;
};

}  // namespace

TEST(WatchE2E, ACardMountedWhileWatchingIsTransferredVerifiedAndEjected) {
    const QString reason = LoopCard::unavailableReason();
    if (!reason.isEmpty())
        GTEST_SKIP() << "no loop-mounted cards: " << reason.toStdString();
    TempHome home;
    QTemporaryDir work;
    home.setEnv("CARDSWEEP_MEDIA_ROOTS", QFile::encodeName(work.filePath("media")));
    LoopCard card("EOS_DIGITAL", LoopCard::kDefaultSize, work.filePath("media/EOS_DIGITAL"));
    ASSERT_TRUE(card.ok()) << card.error().toStdString();
    const QByteArray clip = TestFiles::randomBytes(2 * 1024 * 1024 + 3, 11);
    TestFiles::write(card.mountPoint() + "/DCIM/100EOS5D/MVI_0001.MOV", clip);
    ASSERT_TRUE(card.unmount());

    QVTask watch;
    watch.setLaunchPath(QStringLiteral(CARDSWEEP_CLI_PATH));
    watch.setArguments({"watch", "--dest", work.filePath("dest"), "--eject"});
    watch.setStandardOutput(QVTask::Channel::Pipe);
    watch.setStandardError(QVTask::Channel::NullDevice);
    watch.launch();
    {
        Output output(watch);
        ASSERT_TRUE(output.waitFor("Watching for cards", 30)) << output.text().toStdString();
        ASSERT_TRUE(card.remount());
        const bool ejected = output.waitFor("EOS_DIGITAL: ejected", 60);
        watch.terminate();
        watch.waitUntilExit();
        const QString text = output.text();
        ASSERT_TRUE(ejected) << text.toStdString();
        EXPECT_TRUE(text.contains("Mounted: " + card.mountPoint()));
        EXPECT_TRUE(text.contains("EOS_DIGITAL: verified -> " + work.filePath("dest")));
    }
    EXPECT_EQ(watch.terminationStatus(), 0);
    EXPECT_FALSE(QFileInfo::exists("/sys/block/" + QFileInfo(card.device()).fileName() +
                                   "/loop/backing_file"))
        << "the loop device is detached";
    bool copied = false;
    QDirIterator it(work.filePath("dest"), {"MVI_0001.MOV"}, QDir::Files,
                    QDirIterator::Subdirectories);
    while (it.hasNext())
        copied = copied || TestFiles::read(it.next()) == clip;
    EXPECT_TRUE(copied);
}
