// Cards on real loop devices: cardsweep-cli watch seeing one mounted, transferring, verifying
// and ejecting it; and the controller's erase, with its refusals.
#include <gtest/gtest.h>

#include <QDeadlineTimer>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QThread>
#include <mutex>
#include <thread>

#include "AppController.h"
#include "CardTest.h"
#include "FaultyFileLayer.h"
#include "LoopCard.h"
#include "Preferences.h"
#include "QVTask.h"
#include "QVTaskEx.h"
#include "RecordingAppView.h"
#include "SettingsStore.h"
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

class WatchE2E : public CardTest {};
class EraseE2E : public CardTest {};
class UnmountE2E : public CardTest {};

TEST_F(WatchE2E, ACardMountedWhileWatchingIsTransferredVerifiedAndEjected) {
    const auto cardCard = mountCard("EOS_DIGITAL");
    ASSERT_TRUE(cardCard);
    LoopCard& card = *cardCard;
    const QByteArray clip = TestFiles::randomBytes(2 * 1024 * 1024 + 3, 11);
    TestFiles::write(card.mountPoint() + "/DCIM/100EOS5D/MVI_0001.MOV", clip);
    ASSERT_TRUE(card.unmount());

    QVTask watch;
    watch.setLaunchPath(QStringLiteral(CARDSWEEP_CLI_PATH));
    watch.setArguments({"watch", "--dest", workPath("dest"), "--eject"});
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
        EXPECT_TRUE(text.contains("EOS_DIGITAL: verified -> " + workPath("dest")));
    }
    EXPECT_EQ(watch.terminationStatus(), 0);
    EXPECT_FALSE(QFileInfo::exists("/sys/block/" + QFileInfo(card.device()).fileName() +
                                   "/loop/backing_file"))
        << "the loop device is detached";
    bool copied = false;
    QDirIterator it(workPath("dest"), {"MVI_0001.MOV"}, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext())
        copied = copied || TestFiles::read(it.next()) == clip;
    EXPECT_TRUE(copied);
}

TEST_F(EraseE2E, TheControllerErasesACardButNeverAFolderOrADestinationsDisk) {
    const auto cardCard = mountCard("OLD CARD");
    ASSERT_TRUE(cardCard);
    LoopCard& card = *cardCard;
    SettingsStore settings(workPath("settings.plist"));
    Preferences(settings).registerAndMigrate();
    RecordingAppView view;
    RecordingNotifier notifier;
    AppController controller(settings, view, notifier);
    const auto volume = QVVolume::volumeWithName("OLD CARD", card.mountPoint(), -1, settings);
    const auto folder = QVVolume::volumeWithName("FOLDER", workPath("."), -1, settings);
    folder->setIsFolder(true);
    controller.setDataArray({volume, folder});

    controller.setDestinationList({{1, card.mountPoint() + "/Backups"}});
    controller.eraseVolumeOnThread(volume);
    controller.eraseVolumeOnThread(folder);
    EXPECT_EQ(view.count("sheet: Unable to erase volume 'OLD CARD' | The volume may not exist or "
                         "may be read-only."),
              1);
    EXPECT_EQ(view.count("sheet: Unable to erase volume 'FOLDER' | The volume may not exist or may "
                         "be read-only."),
              1);

    controller.setDestinationList({{1, workPath("dest")}});
    view.setSelectedRows({0});
    controller.erase();
    ASSERT_TRUE(waitUntil([&] {
        return view.count(
                   "sheet: 'OLD CARD' erased successfully | The volume is now ready for use.") == 1;
    }));
    drainWorkers();
    const QString type =
        QVTaskEx::stringFromTask(LoopCard::findTool("blkid"),
                                 {"-p", "-s", "TYPE", "-o", "value", card.device()})
            .trimmed();
    EXPECT_EQ(type, "vfat");
}

TEST_F(UnmountE2E, ACardPulledMidTransferIsInterruptedAndTheNextCardStillTransfers) {
    const auto pulledCard = mountCard("PULLED");
    ASSERT_TRUE(pulledCard);
    LoopCard& pulled = *pulledCard;
    const auto nextCard = mountCard("NEXT");
    ASSERT_TRUE(nextCard);
    LoopCard& next = *nextCard;
    for (const LoopCard* card : {&pulled, &next}) {
        TestFiles::write(card->mountPoint() + "/DCIM/100EOS5D/MVI_0001.MOV",
                         TestFiles::randomBytes(24 * 1024 * 1024, 3));
    }
    SettingsStore settings(workPath("settings.plist"));
    Preferences(settings).registerAndMigrate();
    settings.setObject(SettingsKey::concurrentThreads, PropertyList(qint64(1)));
    settings.setObject("cardsweepEnabled", PropertyList(qint64(1)));
    FaultyFileLayer layer;
    layer.slowReads(pulled.mountPoint() + "/DCIM/100EOS5D/MVI_0001.MOV", 100);  // ~600 ms a clip
    RecordingAppView view;
    RecordingNotifier notifier;
    AppController controller(settings, view, notifier, nullptr, Clock::system(), layer);
    controller.setDestinationList({{1, workPath("dest")}});
    controller.volumeDidMount(pulled.mountPoint());
    controller.volumeDidMount(next.mountPoint());
    const auto first = controller.dataArray()[0];
    const auto second = controller.dataArray()[1];
    ASSERT_TRUE(waitUntil([&] { return first->status() == QVVolume::Copying; }));

    ASSERT_TRUE(pulled.unmount());
    controller.volumeDidUnmount(pulled.mountPoint());
    ASSERT_TRUE(waitUntil([&] { return second->status() == QVVolume::Done; }))
        << first->statusText().toStdString() << " / " << second->statusText().toStdString();
    drainWorkers();
    EXPECT_EQ(first->status(), QVVolume::Cancelled) << first->statusText().toStdString();
    EXPECT_EQ(first->errorString(), "Transfer interrupted");
    EXPECT_EQ(
        view.count("sheet: Transfer interrupted | The source drive was unmounted mid-transfer."),
        1);
    EXPECT_FALSE(QFileInfo::exists(first->destinations().value(0) + "/checksums.txt"))
        << "nothing of the pulled card is reported as verified";
    EXPECT_EQ(view.count("ended: PULLED: Canceled"), 1);
    EXPECT_EQ(view.count("ended: NEXT: Done"), 1);
}
