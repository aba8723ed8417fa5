// The controller over fake services: faults a real machine only shows as root on loop cards
// (a card unmounted mid-transfer, a destination folder that can't be made, a copy that can't
// be read again when it is verified), here without root.
#include <gtest/gtest.h>

#include <QFile>

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
    services_.fakeMounts.mount({"/srv/data", "/dev/sda3", "ext4", "", false}, false);
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
