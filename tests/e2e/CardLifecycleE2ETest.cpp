// Cards on real loop devices: cardsweep-cli watch seeing one mounted, transferring, verifying
// and ejecting it; the controller's erase (its refusals are the unit tests').
#include <gtest/gtest.h>
#include <signal.h>

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QThread>
#include <mutex>
#include <thread>

#include "AppController.h"
#include "CardTest.h"
#include "MountTable.h"
#include "Preferences.h"
#include "QVTask.h"
#include "QVTaskEx.h"
#include "RecordingAppView.h"
#include "SettingsStore.h"
#include "SystemClock.h"
#include "SystemTool.h"
#include "TestFiles.h"
#include "TestMount.h"
#include "TestServices.h"
#include "WaitUntil.h"

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
        return waitUntil([&] { return text().contains(needle); }, seconds * 1000);
    }

  private:
    mutable std::mutex mutex_;
    QString text_;
    std::thread reader_;
};

}  // namespace

class WatchE2E : public CardTest {};
class EraseE2E : public CardTest {};

// Ignored names are left out as destination drives are (the unit tests hold both rules).
TEST_F(WatchE2E, ListsCardsTransfersEachNewOneOnceAndLeavesOutDestinationDrives) {
    const auto present = mountCard("PRESENT");
    const auto card = mountCard("EOS_DIGITAL");
    const auto raid = mountCard("RAID");
    ASSERT_TRUE(present && card && raid);
    const QByteArray clip = TestFiles::randomBytes(2 * 1024 * 1024 + 3, 11);
    for (const TestMount* each : {present.get(), card.get()})
        TestFiles::write(each->mountPoint() + "/DCIM/100EOS5D/MVI_0001.MOV", clip);
    ASSERT_TRUE(card->unmount());

    QVTask watch(
        {QStringLiteral(CARDSWEEP_CLI_PATH),
         {"watch", "--dest", workPath("dest"), "--dest", raid->mountPoint() + "/Media", "--eject"},
         std::nullopt,
         QVTask::Channel::Inherit,
         QVTask::Channel::Pipe,
         QVTask::Channel::NullDevice});
    watch.launch();
    QString text;
    {
        Output output(watch);
        const bool watching = output.waitFor("Watching for cards", 30);
        // A destination's drive coming back, then a card to transfer.
        const bool remounted = watching && raid->unmount() && raid->remount() &&
                               output.waitFor("Not listed: " + raid->mountPoint(), 30) &&
                               card->remount();
        // The card is ejected after its transfer, before the verdict is printed.
        const bool ejected = remounted && output.waitFor("EOS_DIGITAL: Ejected EOS_DIGITAL", 60) &&
                             output.waitFor("EOS_DIGITAL: verified", 30);
        QThread::msleep(600);  // a repeated verdict would show by now
        watch.terminate();
        watch.waitUntilExit();
        text = output.text();
        ASSERT_TRUE(ejected) << text.toStdString();
    }
    EXPECT_EQ(watch.terminationStatus(), 128 + SIGTERM) << text.toStdString();
    EXPECT_TRUE(text.contains("Listed: PRESENT (EOSHD) at " + present->mountPoint()))
        << text.toStdString();
    EXPECT_TRUE(text.contains("Listed: EOS_DIGITAL (EOSHD) at " + card->mountPoint()));
    EXPECT_FALSE(text.contains("Listed: RAID")) << text.toStdString();
    EXPECT_EQ(text.count("EOS_DIGITAL: verified, read back from the media ("), 1)
        << text.toStdString();
    EXPECT_FALSE(text.contains("PRESENT:")) << "a card already there is listed, not transferred";
    // A loop device still held by the exiting FUSE daemon is detached when it lets go.
    const QString backing =
        "/sys/block/" + QFileInfo(card->device()).fileName() + "/loop/backing_file";
    EXPECT_TRUE(waitUntil([&] { return !QFileInfo::exists(backing); }))
        << "the loop device is detached";
    for (const QString& destination : {workPath("dest"), raid->mountPoint() + "/Media"}) {
        bool copied = false;
        QDirIterator it(destination, {"MVI_0001.MOV"}, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext())
            copied = copied || TestFiles::read(it.next()) == clip;
        EXPECT_TRUE(copied) << destination.toStdString();
    }
}

TEST_F(EraseE2E, AnExfatCardStaysExfatWithItsLabelAndComesBackEmpty) {
    const auto oldCard = mountCard("OLD CARD");
    ASSERT_TRUE(oldCard);
    TestMount& card = *oldCard;
    TestFiles::write(card.mountPoint() + "/DCIM/100EOS5D/MVI_0001.MOV", "clip");
    SettingsStore settings(workPath("settings.plist"));
    Preferences(settings).registerAndMigrate();
    RecordingAppView view;
    RecordingNotifier notifier;
    TestServices services(notifier);
    services.useThisMachine();
    AppController controller(settings, view, services.bundle());
    const auto volume =
        QVVolume::volumeWithName("day: 2*", card.mountPoint(), -1, settings, SystemClock::shared());
    controller.setDataArray({volume});
    controller.setDestinationList({{1, workPath("dest")}});
    controller.eraseVolumeOnThread(volume);
    EXPECT_EQ(view.count("sheet: 'day: 2*' erased successfully | The volume is now ready for use."),
              1)
        << view.events().join(u'\n').toStdString();
    const auto blkid = [&](const QString& tag) {
        return QVTaskEx::stringFromTask(SystemTool::find("blkid"),
                                        {"-p", "-s", tag, "-o", "value", card.device()})
            .trimmed();
    };
    EXPECT_EQ(blkid("TYPE"), "exfat");
    EXPECT_EQ(blkid("LABEL"), "OLD CARD") << "the card's own label, not the list's name";
    // Back where it was, so the card returns to the list, and empty.
    const auto entry = MountTable::entryForMountPoint(card.mountPoint());
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->source, card.device());
    EXPECT_TRUE(QDir(card.mountPoint()).isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot));
}
