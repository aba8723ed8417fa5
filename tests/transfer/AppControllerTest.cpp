// The controller's queue, destination choice, reservations, done-marker, discovery and
// automatic mode, with the copy stages recorded instead of run.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <algorithm>
#include <array>
#include <set>
#include <thread>

#include "AppController.h"
#include "ControllerParts.h"
#include "FakeClock.h"
#include "FileLayer.h"
#include "Preferences.h"
#include "QVFileManager.h"
#include "QVVolume.h"
#include "RecordingAppView.h"
#include "SettingsStore.h"
#include "TempHome.h"
#include "TestFiles.h"
#include "TestMount.h"
#include "TestServices.h"

namespace {

void setModified(const QString& path, const QDateTime& when) {
    ASSERT_TRUE(QVFileManager(FileLayer::posix()).setModificationDate(when, path))
        << path.toStdString();
}

class AppControllerTest : public testing::Test {
  protected:
    AppControllerTest()
        : settings_(work_.filePath("settings.plist")),
          clock_(std::make_shared<FakeClock>(QDateTime(QDate(2024, 3, 7), QTime(14, 5, 9)))) {
        Preferences(settings_).registerAndMigrate();
        services_.clock = clock_;
        controller_ =
            std::make_unique<AppController>(settings_, view_, services_.bundle(), &stages_);
    }
    void TearDown() override { drainWorkers(); }

    std::shared_ptr<QVVolume> card(const QString& name) {
        const QString path = work_.filePath("cards/" + name);
        TestFiles::write(path + "/CLIP/A.MXF", "media");
        return QVVolume::volumeWithName(name, path, 0, settings_, clock_);
    }
    QString dest(const QString& name) const { return work_.filePath("dest/" + name); }
    /// A controller for which folder stands in for the place cards are mounted.
    void withMediaRoot(const QString& folder) {
        mediaPaths_ = std::make_unique<FakeLocalPaths>(QStringList{folder});
        services_.paths = mediaPaths_.get();
        controller_ =
            std::make_unique<AppController>(settings_, view_, services_.bundle(), &stages_);
    }
    bool copiesReach(std::size_t count) {
        return waitUntil([&] { return stages_.copies().size() >= count; });
    }

    QTemporaryDir work_;
    SettingsStore settings_;
    std::shared_ptr<FakeClock> clock_;
    RecordingAppView view_;
    RecordingNotifier notifier_;
    RecordingStages stages_;
    TestServices services_{notifier_};
    std::unique_ptr<FakeLocalPaths> mediaPaths_;
    std::unique_ptr<AppController> controller_;
};

}  // namespace

TEST_F(AppControllerTest, AdmitsUpToTheConcurrencyLimitAndStartsTheNextWhenATurnEnds) {
    settings_.setObject(SettingsKey::concurrentThreads, PropertyList(qint64(2)));
    controller_->setDestinationList({{1, dest("A")}});
    const auto first = card("A001"), second = card("A002"), third = card("A003");
    for (const auto& volume : {first, second, third})
        controller_->addVolumeToQueue(volume);

    ASSERT_TRUE(copiesReach(2));
    EXPECT_EQ(controller_->waitingObjects(), std::vector<std::shared_ptr<QVVolume>>{third});
    EXPECT_EQ(controller_->threadCount(), 2);
    controller_->parts().admission.releaseSlot(*stages_.copies()[0].volume);
    ASSERT_TRUE(copiesReach(3));
    EXPECT_EQ(stages_.copies()[2].volume, third);
    EXPECT_TRUE(controller_->waitingObjects().empty());
    EXPECT_EQ(controller_->threadCount(), 2);

    // A limit below 1 counts as 1.
    for (const auto& copy : stages_.copies()) {
        if (copy.volume != stages_.copies()[0].volume)
            controller_->parts().admission.releaseSlot(*copy.volume);
    }
    ASSERT_EQ(controller_->threadCount(), 0);
    settings_.setObject(SettingsKey::concurrentThreads, PropertyList(qint64(0)));
    const auto fourth = card("A004"), fifth = card("A005"), sixth = card("A006");
    for (const auto& volume : {fourth, fifth, sixth})
        controller_->addVolumeToQueue(volume);
    ASSERT_TRUE(copiesReach(4));
    EXPECT_EQ(controller_->waitingObjects(),
              (std::vector<std::shared_ptr<QVVolume>>{fifth, sixth}));

    // A finish starts a waiting volume for the freed slot and one more besides.
    controller_->finishVolume(fourth);
    ASSERT_TRUE(copiesReach(6));
    EXPECT_EQ(controller_->threadCount(), 2);
}

TEST_F(AppControllerTest, DestinationChoiceFollowsTicksAndTheVolumesOwnOutput) {
    controller_->setDestinationList({{1, dest("A")}, {1, dest("B")}});
    const auto onlyB = card("A001");
    onlyB->setOutputs(QStringList{dest("B")});
    controller_->addVolumeToQueue(onlyB);
    ASSERT_TRUE(copiesReach(1));
    const QStringList chosen = stages_.copies()[0].destinations;
    ASSERT_EQ(chosen.size(), 1);
    EXPECT_TRUE(chosen[0].startsWith(dest("B") + "/Untitled Project/1/"));
    EXPECT_TRUE(QFileInfo(chosen[0]).isDir()) << "file mode makes the folder";
    controller_->parts().admission.releaseSlot(*onlyB);

    controller_->setDestinationList({{1, dest("A")}, {0, dest("B")}});
    controller_->addVolumeToQueue(onlyB);
    ASSERT_TRUE(copiesReach(2));
    EXPECT_TRUE(stages_.copies()[1].destinations.isEmpty()) << "its destination is unticked";
    controller_->parts().admission.releaseSlot(*onlyB);

    // Nothing ticked: the user is told, and the worker still runs with no destinations.
    controller_->setDestinationList({{0, dest("A")}});
    const auto untouched = card("A002");
    controller_->addVolumeToQueue(untouched);
    ASSERT_TRUE(copiesReach(3));
    EXPECT_TRUE(stages_.copies()[2].destinations.isEmpty());
    ASSERT_TRUE(waitUntil([&] {
        return view_.count(
                   "sheet: No destinations enabled | You must enable at least one destination in "
                   "order to transfer this volume.") == 1;
    }));
    controller_->parts().admission.releaseSlot(*untouched);

    // An empty list is repaired with the default destination, and the repair is stored.
    controller_->setDestinationList({});
    const auto repaired = card("A003");
    controller_->addVolumeToQueue(repaired);
    ASSERT_TRUE(copiesReach(4));
    EXPECT_EQ(Preferences(settings_).destinationList().size(), 1u);
    EXPECT_TRUE(stages_.copies()[3].destinations[0].startsWith(
        SettingsKey::defaultDestination().path + "/Untitled Project/"));
    // A controller made over a stored empty list starts with the repaired one.
    Preferences(settings_).setDestinationList({});
    EXPECT_EQ(
        AppController(settings_, view_, services_.bundle(), &stages_).destinationList().size(), 1u);
}

TEST_F(AppControllerTest, ReservationsNumberInsideAnExistingFolderAndNeverCollide) {
    const auto volume = card("A001");
    const QString base = controller_->reserveDestination(dest("D"), "P", *volume);
    const auto values = volume->metadata();
    EXPECT_EQ(base, dest("D") + "/P/1/1/2024_03_07_14_05_09");
    EXPECT_EQ(values.at("QVMetaTimestamp"), "2024_03_07_14_05_09") << "the stamp is kept";

    QDir().mkpath(base);
    TestFiles::write(base + "/0001/x");
    EXPECT_EQ(controller_->reserveDestination(dest("D"), "P", *volume), base + "/0002");

    settings_.setObject(SettingsKey::transferType, PropertyList(qint64(1)));
    volume->setTransferOptions({});  // the next transfer reads the settings afresh
    controller_->removeFromReservedFileQueue(controller_->reservedFileQueue());
    EXPECT_EQ(controller_->reserveDestination(dest("D"), "P", *volume), base + "/0001.dmg");
    EXPECT_EQ(controller_->reserveDestination(dest("D"), "P", *volume), base + "/0002.dmg")
        << "0001.dmg is held by the transfer that reserved it";

    // Two workers reserving at once are never handed the same path.
    std::vector<QString> results[2];
    std::thread workers[2];
    for (int w = 0; w < 2; ++w) {
        workers[w] = std::thread([&, w] {
            for (int i = 0; i < 25; ++i)
                results[w].push_back(controller_->reserveDestination(dest("D"), "P", *volume));
        });
    }
    for (std::thread& worker : workers)
        worker.join();
    std::set<QString> distinct(results[0].begin(), results[0].end());
    distinct.insert(results[1].begin(), results[1].end());
    EXPECT_EQ(distinct.size(), 50u);
    EXPECT_FALSE(distinct.count(base + "/0001.dmg"));
}

TEST_F(AppControllerTest, TheMarkerMarksACardDoneOnlyWhileNothingIsNewer) {
    const auto volume = card("A001");
    const QString root = volume->path();
    const QDateTime now = QDateTime::currentDateTime();
    TestFiles::write(root + "/CLIP/deep/B.MXF");
    TestFiles::write(root + "/.hidden-newer");
    TestFiles::write(root + "/.cardsweep", "");
    for (const char* item : {"/CLIP/A.MXF", "/CLIP/deep/B.MXF", "/CLIP/deep", "/CLIP"})
        setModified(root + item, now.addDays(-2));
    setModified(root + "/.cardsweep", now.addDays(-1));
    setModified(root + "/.hidden-newer", now);

    controller_->checkDoneFlagForVolume(volume);
    EXPECT_EQ(volume->status(), QVVolume::Done);

    volume->setStatus(QVVolume::Idle);
    volume->setIsFolder(true);
    controller_->checkDoneFlagForVolume(volume);
    EXPECT_EQ(volume->status(), QVVolume::Idle) << "a folder is never marked done";

    volume->setIsFolder(false);
    setModified(root + "/CLIP/deep/B.MXF", now);
    controller_->checkDoneFlagForVolume(volume);
    EXPECT_EQ(volume->status(), QVVolume::Idle);
    EXPECT_FALSE(QFileInfo::exists(root + "/.cardsweep")) << "a stale marker goes";
}

TEST_F(AppControllerTest, AVanishedSourceFailsAndTheNextVolumeStarts) {
    settings_.setObject(SettingsKey::concurrentThreads, PropertyList(qint64(1)));
    controller_->setDestinationList({{1, dest("A")}});
    const auto gone = card("GONE");
    // Pulled after it was listed: what is left at its mount point is another file system.
    const auto swapped = card("SWAPPED");
    swapped->setSourceDevice(swapped->sourceDevice() + 1);
    const auto next = card("NEXT");
    QDir(gone->path()).removeRecursively();
    for (const auto& volume : {gone, swapped, next})
        controller_->addVolumeToQueue(volume);

    ASSERT_TRUE(copiesReach(1));
    EXPECT_EQ(stages_.copies()[0].volume, next);
    for (const auto& volume : {gone, swapped}) {
        EXPECT_EQ(volume->status(), QVVolume::Failed);
        EXPECT_TRUE(view_.sawOnce("ended: " + volume->name() + ": Error: Volume doesn't exist"));
    }
    EXPECT_EQ(notifier_.posted(), QStringList({"Transfer Failed | GONE | Transfer Failed",
                                               "Transfer Failed | SWAPPED | Transfer Failed"}));
}

TEST_F(AppControllerTest, ProcessingPreparesTheCardAndHandsOver) {
    controller_->setDestinationList({{1, dest("A")}, {1, dest("B")}});
    const auto volume = card("A001");
    TestFiles::write(volume->path() + "/.cardsweep", "");
    TestFiles::write(volume->path() + "/.Trashes/junk", QByteArray(100, 'j'));
    controller_->addVolumeToQueue(volume);
    ASSERT_TRUE(copiesReach(1));

    EXPECT_FALSE(QFileInfo::exists(volume->path() + "/.cardsweep")) << "the marker goes first";
    EXPECT_EQ(settings_.object(SettingsKey::lastTransferDate).toDateTime(), clock_->now());
    EXPECT_EQ(volume->status(), QVVolume::Copying);
    EXPECT_EQ(volume->progressBar().maxValue, 3 * 5.0)
        << "media usage leaves system litter out; each copy is read back as much again";
    EXPECT_EQ(volume->destinations().size(), 2);
    EXPECT_TRUE(controller_->reservedFileQueue().isEmpty());

    // Asked again while busy, the volume gives back its slot and starts afresh; a copy that
    // can't start fails it and gives the slot back.
    stages_.setCopyResult(false);
    controller_->addVolumeToQueue(volume);
    ASSERT_TRUE(view_.sawOnce("ended: A001: Error: Can't copy disk"));
    EXPECT_EQ(controller_->threadCount(), 0);

    // Image mode: one image per destination, each verified; a failed image stops the rest.
    settings_.setObject(SettingsKey::transferType, PropertyList(qint64(1)));
    controller_->addVolumeToQueue(volume);
    ASSERT_TRUE(waitUntil([&] { return stages_.verifications().size() == 2; }));
    // Each image is verified on a thread of its own, so in any order.
    const QStringList images = stages_.images(), verified = stages_.verifications();
    EXPECT_TRUE(
        std::is_permutation(images.begin(), images.end(), verified.begin(), verified.end()));
    EXPECT_EQ(controller_->reservedFileQueue(), stages_.images()) << "held until the end";
    controller_->removeFromReservedFileQueue(stages_.images());

    stages_.setImageResult(false);
    controller_->addVolumeToQueue(volume);
    ASSERT_TRUE(view_.sawOnce("ended: A001: Error: Unable to create disk image"));
    EXPECT_EQ(stages_.images().size(), 3);
    EXPECT_EQ(controller_->threadCount(), 0);
    EXPECT_TRUE(controller_->reservedFileQueue().isEmpty()) << "nor the image not attempted";

    // Cancelled while it is prepared (here as it turns "Copying..."): nothing is handed over,
    // no reserved path stays held, and the waiting volume gets the slot. A pulled card still
    // holds its slot; the user's cancel has given it back already.
    settings_.setObject(SettingsKey::transferType, PropertyList(qint64(0)));
    settings_.setObject(SettingsKey::concurrentThreads, PropertyList(qint64(1)));
    stages_.setCopyResult(true);
    for (const bool pulled : {true, false}) {
        view_.setReloadHook([&, pulled] {
            if (volume->status() != QVVolume::Copying)
                return;
            volume->setStatus(QVVolume::Cancelled);
            if (!pulled)
                controller_->cancelVolume(*volume);
        });
        const auto next = card(pulled ? "NEXT1" : "NEXT2");
        const std::size_t before = stages_.copies().size();
        controller_->addVolumeToQueue(volume);
        controller_->addVolumeToQueue(next);
        ASSERT_TRUE(copiesReach(before + 1));
        EXPECT_EQ(stages_.copies().back().volume, next);
        EXPECT_EQ(controller_->threadCount(), 1) << "the next volume's slot only";
        EXPECT_TRUE(controller_->reservedFileQueue().isEmpty());
        controller_->parts().admission.releaseSlot(*next);
        ASSERT_TRUE(
            waitUntil([&] { return view_.count("ended: A001: Canceled") == (pulled ? 1 : 2); }));
    }
    view_.setReloadHook({});
}

TEST_F(AppControllerTest, DiscoveryLeavesOutDestinationDrivesAndIgnoredNames) {
    withMediaRoot(work_.filePath("cards"));
    controller_->setDestinationList({{1, work_.filePath("cards/RAID/Media")}, {1, dest("home")}});
    settings_.setObject(SettingsKey::ignoredVolumes,
                        PropertyList(PropertyList::Array{PropertyList(QString("NO NAME"))}));
    for (const char* name : {"RAID", "RAID 2", "NO NAME"})
        controller_->volumeDidMount(card(name)->path());
    std::vector<QString> listed;
    for (const auto& volume : controller_->dataArray())
        listed.push_back(volume->name());
    EXPECT_EQ(listed, std::vector<QString>{"RAID 2"});

    view_.setSelectedRows({0});
    controller_->ignore();
    EXPECT_TRUE(controller_->dataArray().empty());
    EXPECT_EQ(settings_.object(SettingsKey::ignoredVolumes).toStringList(),
              QStringList({"NO NAME", "RAID 2"}));

    controller_->importFolders({work_.filePath("cards/RAID")});
    ASSERT_EQ(controller_->dataArray().size(), 0u) << "a destination's drive, even as a folder";
    controller_->importFolders({dest("home")});
    ASSERT_EQ(controller_->dataArray().size(), 1u);
    EXPECT_EQ(controller_->dataArray()[0]->status(), QVVolume::Idle) << "folders are subjects";

    // The list is rebuilt from the mounted media alone: the added folder goes.
    controller_->resetIgnoredVolumes();
    EXPECT_TRUE(settings_.object(SettingsKey::ignoredVolumes).toStringList().isEmpty());
    EXPECT_TRUE(waitUntil([&] { return controller_->dataArray().empty(); }));
    EXPECT_EQ(view_.count("sheet: Ignored volumes successfully reset | Previously-ignored volumes "
                          "will now reappear in the volume list."),
              1);
}

TEST_F(AppControllerTest, AutomaticModeQueuesRecognisedCardsAndStartUpShowsIt) {
    withMediaRoot(work_.filePath("cards"));
    controller_->setDestinationList({{1, dest("A")}});
    // On: the listener's unit file is the switch.
    const QString units =
        mediaPaths_->pathForDirectory(StandardDirectory::Preferences, true) + "/systemd/user/";
    EXPECT_FALSE(controller_->cardsweepEnabled());
    controller_->toggleCardsweep();
    EXPECT_TRUE(controller_->cardsweepEnabled());
    EXPECT_TRUE(QFileInfo::exists(units + "com.quorvant.Cardsweep.service"));
    TestFiles::write(work_.filePath("cards/EOS/DCIM/100EOS5D/MVI_0001.MOV"));
    TestFiles::write(work_.filePath("cards/USB/notes.txt"));
    controller_->volumeDidMount(work_.filePath("cards/USB"));
    controller_->volumeDidMount(work_.filePath("cards/EOS"));
    ASSERT_TRUE(copiesReach(1));
    const auto eos = stages_.copies()[0].volume;
    EXPECT_EQ(eos->typeName(), "EOSHD");
    EXPECT_EQ(controller_->dataArray().size(), 2u) << "an unknown card is listed, not started";
    view_.setSelectedRows({1});
    controller_->showInfo();
    EXPECT_EQ(
        view_.events().filter("info: EOS | Mount Point=" + eos->path() + "; Type=EOSHD;").size(),
        1);

    // Switched on again, the automatic mode queues the recognised cards left cancelled.
    controller_->parts().admission.releaseSlot(*eos);
    eos->setStatus(QVVolume::Cancelled);
    controller_->toggleCardsweep();  // off
    EXPECT_FALSE(controller_->cardsweepEnabled());
    EXPECT_FALSE(QFileInfo::exists(units + "com.quorvant.Cardsweep.service"));
    controller_->toggleCardsweep();
    ASSERT_TRUE(copiesReach(2));
    EXPECT_EQ(stages_.copies()[1].volume, eos);
    drainWorkers();

    // Start-up: the toolbar off, the automatic mode shown on, an offline drive named once.
    controller_->setDestinationList(
        {{1, work_.filePath("cards/RAID/A")}, {1, work_.filePath("cards/RAID/B")}});
    controller_->startUp({"cardsweep", "-cardsweepVolume", work_.filePath("cards/NONE")});
    EXPECT_FALSE(view_.toolbar().transferEnabled || view_.toolbar().infoEnabled);
    EXPECT_EQ(view_.events().filter("automatic:"),
              QStringList({"automatic: on", "automatic: off", "automatic: on", "automatic: on"}));
    EXPECT_EQ(view_.count("sheet: Destinations offline | The following destination drives are "
                          "offline:\nRAID"),
              1);
    drainWorkers();
    EXPECT_EQ(stages_.copies().size(), 2u) << "a card not listed is not started";
}

// Refused before anything is written (why each destination is refused is the command line's
// table): the card stays listed with the reason, and the slot is free.
TEST_F(AppControllerTest, ARefusedStartKeepsTheCardListedWithTheReasonAndWritesNothing) {
    const auto volume = card("A001");
    const QString destination = volume->path() + "/copies";
    const QString reason = destination + ": destination is inside the source";
    const auto before = TestFiles::tree(volume->path());
    controller_->setDataArray({volume});
    controller_->setDestinationList({{1, destination}});
    controller_->addVolumeToQueue(volume);
    ASSERT_TRUE(waitUntil([&] { return !view_.events().filter("ended: A001").isEmpty(); }));

    EXPECT_EQ(volume->status(), QVVolume::Failed);
    EXPECT_TRUE(volume->statusText().startsWith("Error: " + reason))
        << volume->statusText().toStdString();
    EXPECT_EQ(controller_->dataArray(), std::vector<std::shared_ptr<QVVolume>>{volume});
    const QStringList sheets = view_.events().filter("sheet: Unable to transfer 'A001' | ");
    ASSERT_EQ(sheets.size(), 1);
    EXPECT_TRUE(sheets[0].contains(reason)) << sheets[0].toStdString();
    EXPECT_TRUE(stages_.copies().empty());
    EXPECT_EQ(TestFiles::tree(volume->path()), before);
    EXPECT_EQ(controller_->threadCount(), 0);
}

namespace {

class EndedCardTest : public AppControllerTest, public testing::WithParamInterface<VolumeStatus> {};

}  // namespace

// A card that was cancelled or failed is offered for transfer again, and starts; only a
// running one is cancelled by the same command.
TEST_P(EndedCardTest, TransferStartsItAgainAndCancelsItOnceRunning) {
    controller_->setDestinationList({{1, dest("A")}});
    const auto volume = card("A001");
    volume->setStatus(GetParam());
    controller_->setDataArray({volume});
    view_.setSelectedRows({0});
    controller_->updateToolbarForTableSelection();
    EXPECT_EQ(view_.toolbar().transferLabel, "Transfer");

    const QString abort =
        "sheet: Are you sure you wish to abort this transfer? | You can remove "
        "transferred files by choosing Confirm & Remove.";
    controller_->transfer();
    ASSERT_TRUE(copiesReach(1));
    EXPECT_EQ(view_.count(abort), 0);
    ASSERT_TRUE(waitUntil([&] { return view_.toolbar().transferLabel == " Cancel "; }));
    view_.setSheetAnswer(0);
    controller_->transfer();
    EXPECT_EQ(view_.count(abort), 1);
    EXPECT_EQ(stages_.copies().size(), 1u) << "a running card is never started twice";
    controller_->parts().admission.releaseSlot(*volume);
}

INSTANTIATE_TEST_SUITE_P(Ended, EndedCardTest,
                         testing::Values(VolumeStatus::Cancelled, VolumeStatus::Failed),
                         [](const auto& info) {
                             return std::string(info.param == VolumeStatus::Failed ? "Failed"
                                                                                   : "Cancelled");
                         });

// The title and launcher show a share only while something runs, however much of the list is
// done or failed.
TEST_F(AppControllerTest, TitleShowsProgressOnlyWhileACardRuns) {
    const struct {
        std::vector<VolumeStatus> statuses;
        double copied;  // share of the copying one's bar
        const char* title;
    } lists[] = {
        {{VolumeStatus::Done, VolumeStatus::Failed, VolumeStatus::Cancelled, VolumeStatus::Idle},
         0,
         "Cardsweep"},
        {{VolumeStatus::Copying, VolumeStatus::Done}, 0.5, "Cardsweep (75%)"}};
    for (const auto& list : lists) {
        SCOPED_TRACE(list.title);
        std::vector<std::shared_ptr<QVVolume>> volumes;
        for (const VolumeStatus status : list.statuses) {
            volumes.push_back(card(QString("A%1").arg(volumes.size())));
            volumes.back()->setStatus(status);
            volumes.back()->setMaxProgressValue(100);
            volumes.back()->setProgressValue(100 * list.copied);
        }
        controller_->setDataArray(volumes);
        controller_->parts().progressView.showOverallProgress();
        const QStringList titles = view_.events().filter("title: ");
        ASSERT_FALSE(titles.isEmpty());
        EXPECT_EQ(titles.constLast(), QString("title: ") + list.title);
        EXPECT_EQ(view_.events().filter("badge: ").constLast() == "badge: ",
                  list.title == std::string("Cardsweep"));
    }
}

TEST_F(AppControllerTest, FreeSpaceCountsEachTickedFileSystemOnce) {
    TestMount first(work_.filePath("first"), TestMount::tmpfs(8 << 20));
    TestMount second(work_.filePath("second"), TestMount::tmpfs(16 << 20));
    if (!first.ok() || !second.ok())
        GTEST_SKIP() << "no tmpfs: " << first.error().toStdString();
    controller_->setDestinationList({{1, first.filePath("A")},
                                     {1, first.filePath("B")},
                                     {1, second.filePath("not made yet/C")},
                                     {0, dest("unticked")}});
    controller_->refreshTotalRemainingSpace();
    FileLayer::Space a, b;
    ASSERT_EQ(FileLayer::posix().freeSpace(QFile::encodeName(first.mountPoint()), &a), 0);
    ASSERT_EQ(FileLayer::posix().freeSpace(QFile::encodeName(second.mountPoint()), &b), 0);
    EXPECT_EQ(view_.events().filter("space: ").constLast(),
              "space: Total Remaining Space on Media Drives: " +
                  QVFileManager::formatFileSize(double(a.available + b.available)));
}
