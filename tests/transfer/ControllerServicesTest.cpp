// The controller over fake services: faults a real machine only shows as root on loop cards
// (a card unmounted mid-transfer, a card imaged from its device), here without root.
#include <gtest/gtest.h>

#include <QFile>
#include <QFileInfo>

#include "FakeVolumeActions.h"
#include "FaultyFileLayer.h"
#include "FileLayer.h"
#include "OffloadFixture.h"
#include "Preferences.h"
#include "TestFiles.h"

namespace {

constexpr qint64 MiB = 1024 * 1024;

class ControllerServicesTest : public OffloadFixture {};

// How a card stands after this run (checks: -1 never started, 0 not read back, 1 read back;
// ended: -1 not yet, else whether it ended whole), and whether Erase may take it then.
struct EraseCase {
    const char* name;
    VolumeStatus status;
    int checks;
    int ended;
    bool failedFile;
    bool erasable;
    friend void PrintTo(const EraseCase& c, std::ostream* os) { *os << c.name; }
};

void standAs(QVVolume& volume, const EraseCase& c) {
    if (c.checks >= 0)
        volume.startTransferChecks(true, true, c.checks == 1);
    volume.setStatus(c.status);
    if (c.ended >= 0)
        volume.endTransferChecks(c.ended == 1);
    if (c.failedFile)
        volume.addFailedFile(std::make_shared<CopyInfo>());
}

class EraseOnlyVerified : public ControllerServicesTest,
                          public testing::WithParamInterface<EraseCase> {};

}  // namespace

// Disk mode reads the device the mount table names; here an image file stands in for it.
TEST_F(ControllerServicesTest, ACardIsImagedFromItsDeviceAndADamagedOrPulledOneNeverVerifies) {
    FaultyFileLayer& layer = faultyLayer();
    makeController(layer);
    settings_.setObject(SettingsKey::transferType, PropertyList(qint64(1)));
    settings_.setObject(SettingsKey::verifyFileSizes, PropertyList(qint64(0)));
    settings_.setObject(SettingsKey::writeDoneFlag, PropertyList(qint64(0)));
    const auto volume = card("IMG CARD");
    const QString device = workPath("sdz1");
    // Past the first progress report (every 40 MiB), so a pull can come while it is read.
    TestFiles::write(device, TestFiles::randomBytes(64 * MiB, 9));
    services_.fakeMounts.addBlockDevice(device, 0x0811);
    services_.fakeMounts.setRemovable(device);
    services_.fakeMounts.mount({volume->path(), device, "exfat", "", false});
    services_.fakeDisks.set(volume->path(),
                            PropertyList::Dictionary{{"VolumeUUID", QStringLiteral("UUID-IMG")}});
    controller_->startWatchingMounts();
    controller_->setDataArray({volume});
    qsizetype ends = 0;
    const auto transfer = [&](const QString& folder,
                              const std::function<void()>& whileReading = {}) {
        controller_->setDestinationList(
            {{1, workPath(folder + " one")}, {1, workPath(folder + " two")}});
        controller_->addVolumeToQueue(volume);
        if (whileReading && waitUntil([&] {
                return volume->status() == QVVolume::Copying &&
                       volume->progressBar().doubleValue > 0;
            }))
            whileReading();
        ++ends;
        EXPECT_TRUE(waitUntil([&] { return view_.events().filter("ended: ").size() == ends; }));
        drainWorkers();
        return view_.events().filter("ended: ").value(ends - 1);
    };

    EXPECT_EQ(transfer("whole"), "ended: IMG CARD: Done");
    ASSERT_EQ(volume->destinations().size(), 2);
    for (const QString& image : volume->destinations()) {
        EXPECT_EQ(TestFiles::read(image), TestFiles::read(device)) << image.toStdString();
        EXPECT_EQ(QFileInfo(image).permissions() & QFile::WriteOwner, 0) << "images are read-only";
    }

    const auto failureCounts = [&] { return settings_.get(SettingsKey::failureCounts); };
    EXPECT_TRUE(failureCounts().empty());
    layer.corruptWriteAt(QString(), MiB);  // every image written from here on
    EXPECT_EQ(transfer("damaged"), "ended: IMG CARD: Error: Disk image failed verification test");
    ASSERT_EQ(failureCounts().size(), 1u);
    EXPECT_EQ(failureCounts().begin()->second.toInteger(), 2) << "once for each failed image";

    layer.corruptWriteAt(QString(), -1);
    layer.slowReads(device, 25);
    EXPECT_EQ(transfer("pulled", [&] { services_.fakeMounts.unmount(volume->path()); }),
              "ended: IMG CARD: Card removed during transfer");
    EXPECT_EQ(controller_->threadCount(), 0) << "its slot is free again";
    EXPECT_EQ(failureCounts().begin()->second.toInteger(), 2) << "a pull is no failure";
}

// Return never erases: Cancel is the sheet's default.
TEST_P(EraseOnlyVerified, ACardIsErasedOnlyWithAVerifiedCopyAndTheSheetNamesItAndWhy) {
    makeController();
    const QString path = "/media/tester/A001";
    const auto card = QVVolume::volumeWithName("A001", path, 0, settings_, services_.clock);
    card->addDestination(workPath("dest/A001"));
    services_.fakeDisks.set(
        path, PropertyList(PropertyList::Dictionary{
                  {"FilesystemType", "exfat"}, {"TotalSize", PropertyList(qint64(64) << 30)}}));
    standAs(*card, GetParam());
    controller_->setDataArray({card});
    view_.setSelectedRows({0});
    controller_->updateToolbarForTableSelection();
    const bool erasable = GetParam().erasable;
    EXPECT_EQ(view_.toolbar().eraseEnabled, erasable);

    view_.setSheetAnswer(RecordingAppView::kReturn);
    controller_->erase();
    drainWorkers();
    EXPECT_TRUE(services_.fakeVolumes.calls().empty());
    const QStringList sheets = view_.events().filter("sheet: ");
    ASSERT_EQ(sheets.size(), 1);
    if (!erasable) {  // the sheet says why; what it says is the product's own wording
        EXPECT_TRUE(sheets[0].startsWith("sheet: A001 has no verified copy | A001: "));
        EXPECT_TRUE(sheets[0].endsWith(".\nNothing was erased."));
        return;
    }
    EXPECT_TRUE(
        sheets[0].startsWith("sheet: Are you sure you wish to erase this volume? | "
                             "This will permanently remove all data.\n\nA001: exFAT, 64"))
        << sheets[0].toStdString();
    EXPECT_TRUE(sheets[0].endsWith("verified copy: " + workPath("dest/A001")));
    view_.setSheetAnswer(1);
    controller_->setDestinationList({{1, "/media/tester/RAID/Offload"}});
    controller_->erase();
    drainWorkers();
    ASSERT_EQ(services_.fakeVolumes.calls().size(), 1u);
    EXPECT_EQ(services_.fakeVolumes.calls()[0].mountPoint, path);
    EXPECT_EQ(services_.fakeVolumes.calls()[0].protectedPaths,
              QStringList{"/media/tester/RAID/Offload"})
        << "the disks of the destinations are never erased";
}

INSTANTIATE_TEST_SUITE_P(
    Cards, EraseOnlyVerified,
    testing::Values(EraseCase{"Verified", QVVolume::Done, 1, 1, false, true},
                    EraseCase{"NeverCopied", QVVolume::Idle, -1, -1, false, false},
                    // A marker on the card from another run: no copy of this run to vouch for it.
                    EraseCase{"DoneByItsMarker", QVVolume::Done, -1, -1, false, false},
                    EraseCase{"Failed", QVVolume::Failed, 1, 0, false, false},
                    EraseCase{"Cancelled", QVVolume::Cancelled, 1, -1, false, false},
                    EraseCase{"NotReadBack", QVVolume::Done, 0, 1, false, false},
                    EraseCase{"AFileFailed", QVVolume::Done, 1, 1, true, false},
                    EraseCase{"Interrupted", QVVolume::Done, 1, 0, false, false}),
    [](const testing::TestParamInfo<EraseCase>& info) { return std::string(info.param.name); });

// Eject: cards leave through the volume actions, a folder the user added just leaves the list,
// and a card that can't be ejected stays listed.
TEST_F(ControllerServicesTest, EjectHandsCardsToTheVolumeActionsAndDropsFolders) {
    makeController();
    const auto card =
        QVVolume::volumeWithName("CARD", "/media/tester/CARD", 0, settings_, services_.clock);
    const auto busy =
        QVVolume::volumeWithName("BUSY", "/media/tester/BUSY", 0, settings_, services_.clock);
    const auto folder =
        QVVolume::volumeWithName("FOLDER", workPath("."), -1, settings_, services_.clock);
    folder->setIsFolder(true);
    const FakeVolumeActions::Script busyFails = [](const FakeVolumeActions::Call& call,
                                                   QString* error) {
        *error = QStringLiteral("target is busy");
        return !call.mountPoint.endsWith("BUSY");
    };
    services_.fakeVolumes.answer(FakeVolumeActions::Action::UnmountAndEject, busyFails);
    controller_->setDataArray({card, busy, folder});
    view_.setSelectedRows({0, 1, 2});
    controller_->eject();

    std::vector<QString> ejected;
    for (const auto& call : services_.fakeVolumes.calls())
        ejected.push_back(call.mountPoint);
    EXPECT_EQ(ejected, (std::vector<QString>{"/media/tester/CARD", "/media/tester/BUSY"}));
    EXPECT_EQ(controller_->dataArray(), (std::vector<std::shared_ptr<QVVolume>>{card, busy}))
        << "cards leave the list when their unmount is heard, folders at once";
}

// Discovery lists what the mount table says is a card, and names an offline destination drive.
TEST_F(ControllerServicesTest, DiscoveryListsTheRemovableMountsOfTheTable) {
    FakeMountService& mounts = services_.fakeMounts;
    for (const char* name : {"EOS", "USB", "DATA"})
        TestFiles::write(workPath(QStringLiteral("media/%1/x").arg(name)), "x");
    TestFiles::write(workPath("media/EOS/DCIM/100EOS5D/MVI_0001.MOV"), "movie");
    mounts.addBlockDevice("/dev/sdb1", 0x811);
    mounts.addBlockDevice("/dev/sdc1", 0x821);
    mounts.addBlockDevice("/dev/sda3", 0x803);
    mounts.setRemovable("/dev/sdb1");
    mounts.setRemovable("/dev/sdc1");
    mounts.mount(FakeMountService::entry(workPath("media/EOS"), "/dev/sdb1"));
    mounts.mount(FakeMountService::entry(workPath("media/USB"), "/dev/sdc1"));
    mounts.mount(FakeMountService::entry(workPath("media/DATA"), "/dev/sda3"));  // fixed disk
    makeController();
    controller_->populateVolumes();
    QStringList listed;
    for (const auto& volume : controller_->dataArray())
        listed << volume->name() + ":" + volume->typeName();
    EXPECT_EQ(listed, QStringList({"EOS:EOSHD", "USB:Unknown"}));

    // Listing again (start-up racing a mount, or ignored volumes reset) keeps the records of
    // cards still there and of anything being transferred; added folders go.
    const auto eos = controller_->dataArray().front();
    eos->setStatus(QVVolume::Copying);
    const auto folder = controller_->addVolumeLocationToList(workPath("media/DATA"), true);
    const auto verifying = listCard("GONE");
    verifying->setStatus(QVVolume::Verifying);
    controller_->setDataArray({eos, folder, verifying});
    controller_->populateVolumes();
    const auto relisted = controller_->dataArray();
    ASSERT_EQ(relisted.size(), 3u);
    EXPECT_EQ(relisted[0], eos) << "the same record, its transfer still in view";
    EXPECT_EQ(relisted[1]->name(), "USB");
    EXPECT_EQ(relisted[2], verifying);
}
