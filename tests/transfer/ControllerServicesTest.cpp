// The controller over fake services: faults a real machine only shows as root on loop cards
// (a card unmounted mid-transfer, a destination folder that can't be made, a copy that can't
// be read again when it is verified), here without root.
#include <gtest/gtest.h>

#include <QFile>
#include <QFileInfo>

#include "FaultyFileLayer.h"
#include "ManifestVerifier.h"
#include "OffloadFixture.h"
#include "Preferences.h"
#include "TestFiles.h"

namespace {

constexpr qint64 MiB = 1024 * 1024;

// Folders under one path can't be made, as on a destination the user may not write to.
class NoFoldersUnder : public FaultyFileLayer {
  public:
    explicit NoFoldersUnder(const QString& folder) : folder_(QFile::encodeName(folder)) {}
    int makeFolder(const QByteArray& path) override {
        if (path == folder_ || path.startsWith(folder_ + '/')) {
            errno = EACCES;
            return -1;
        }
        return FaultyFileLayer::makeFolder(path);
    }

  private:
    const QByteArray folder_;
};

class ControllerServicesTest : public OffloadFixture {};

}  // namespace

TEST_F(ControllerServicesTest, ACardUnmountedMidTransferIsInterruptedAndNothingIsVerified) {
    FaultyFileLayer& layer = faultyLayer();
    makeController(layer);
    controller_->startWatchingMounts();
    const QString path = card("A001")->path();
    TestFiles::write(path + "/CONTENTS/CLIP/A001C003.MXF", TestFiles::randomBytes(8 * MiB, 2));
    layer.slowReads(path + "/CONTENTS/CLIP/A001C003.MXF", 50);

    // Mounted somewhere that isn't a card: not listed; the card itself is.
    services_.fakeMounts.mount({"/srv/data", "/dev/sda3", "ext4", "", false});
    services_.fakeMounts.setRemovable("/dev/sdz1");
    services_.fakeMounts.mount({path, "/dev/sdz1", "exfat", "", false});
    ASSERT_EQ(controller_->dataArray().size(), 1u);
    const auto volume = controller_->dataArray().front();

    controller_->addVolumeToQueue(volume);
    ASSERT_TRUE(waitUntil([&] { return volume->progressBar().doubleValue > 0; }));
    services_.fakeMounts.unmount(path);
    ASSERT_TRUE(waitUntil([&] { return view_.events().filter("ended: ").size() == 1; }));
    drainWorkers();

    EXPECT_TRUE(controller_->dataArray().empty());
    EXPECT_EQ(volume->status(), QVVolume::Cancelled);
    EXPECT_EQ(volume->errorString(), "Transfer interrupted");
    EXPECT_TRUE(view_.events().contains(
        "sheet: Transfer interrupted | The source drive was unmounted mid-transfer."));
    for (const QString& destination : volume->destinations())
        EXPECT_FALSE(ManifestVerifier::verify(destination).ok()) << destination.toStdString();
    EXPECT_EQ(controller_->threadCount(), 0) << "the slot is given back";
}

TEST_F(ControllerServicesTest, ADestinationFolderThatCantBeMadeIsNamedAndTheOtherIsComplete) {
    NoFoldersUnder layer(workPath("dest two"));  // outlives the workers: offload drains them
    makeController(layer);
    settings_.setObject(SettingsKey::metadata, PropertyList(PropertyList::Array()));
    const auto volume = card("A001");
    ASSERT_TRUE(offload({volume}));

    EXPECT_EQ(volume->status(), QVVolume::Failed);
    const auto ledger = volume->ledger();
    ASSERT_TRUE(ledger);
    EXPECT_TRUE(ledger->isComplete(0));
    EXPECT_FALSE(ledger->isComplete(1));
    EXPECT_TRUE(ManifestVerifier::verify(volume->destinations()[0]).ok());
    bool named = false;
    for (const auto& failure : ledger->failures())
        named = named || (failure.destination == 1 && failure.reason.contains("Permission denied"));
    EXPECT_TRUE(named) << "the destination that can't be written is named with its reason";
}

TEST_F(ControllerServicesTest, ACopyThatCantBeReadAgainWhenVerifiedFailsVerification) {
    FaultyFileLayer& layer = faultyLayer();
    makeController(layer);
    settings_.setObject(SettingsKey::metadata, PropertyList(PropertyList::Array()));
    settings_.setObject(SettingsKey::verifyFileChecksums, PropertyList(qint64(1)));
    const auto volume = card("A001");
    ASSERT_TRUE(offload({volume}));
    ASSERT_EQ(volume->status(), QVVolume::Done);

    // Verified once; read again later, one copy gives a read error a megabyte in.
    layer.failReadsAfter(volume->destinations()[1] + "/CONTENTS/CLIP/A001C002.MXF", MiB);
    controller_->verifyVolume(volume);
    drainWorkers();
    EXPECT_EQ(volume->statusText(),
              "Error: Verification failure: Source files do not match destination files");
    EXPECT_EQ(view_.count("review"), 1);
    const auto digests = volume->destChecksumDict();
    EXPECT_FALSE(digests.at(volume->destinations()[1]).contains("/CONTENTS/CLIP/A001C002.MXF"))
        << "a copy that can't be read has no digest to pass with";
    EXPECT_TRUE(digests.at(volume->destinations()[0]).contains("/CONTENTS/CLIP/A001C002.MXF"));
}

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

    layer.corruptWriteAt(QString(), MiB);  // every image written from here on
    EXPECT_EQ(transfer("damaged"), "ended: IMG CARD: Error: Disk image failed verification test");

    layer.corruptWriteAt(QString(), -1);
    layer.slowReads(device, 25);
    EXPECT_EQ(transfer("pulled", [&] { services_.fakeMounts.unmount(volume->path()); }),
              "ended: IMG CARD: Canceled");
    EXPECT_EQ(volume->errorString(), "Transfer interrupted");
    EXPECT_EQ(controller_->threadCount(), 0) << "its slot is free again";
}
