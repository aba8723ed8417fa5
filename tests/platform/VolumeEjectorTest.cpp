// Eject on a fake mount table and fake tools: which commands run, in what order, and what
// happens when umount hangs or the card stays busy.

#include <gtest/gtest.h>

#include "FakeMountService.h"
#include "FakeProcessRunner.h"
#include "VolumeEjector.h"

namespace {

// Names no udisks daemon knows, so every step falls back to the tools.
const QString kCardDevice = "/dev/cardsweep-test-loop7";
const QString kCard = "/media/tester/CARD";
const QString kImage = "/tmp/card.img";

class VolumeEjectorTest : public testing::Test {
  protected:
    void SetUp() override {
        mounts.addBlockDevice("/dev/cardsweep-test-sda2", 0x802, 0x800);
        mounts.mount(FakeMountService::entry("/", "/dev/cardsweep-test-sda2", "ext4"));
        mounts.addBlockDevice(kCardDevice, 0x707);
        mounts.setLoopBacking(kCardDevice, kImage);
        mounts.setRemovable(kCardDevice);
        mounts.mount(FakeMountService::entry(kCard, kCardDevice, "exfat"));
    }

    // umount that works: the card leaves the table.
    void umountUnmounts() {
        runner.answer("umount", [this](const QStringList& arguments) {
            return FakeProcessRunner::exited(mounts.unmount(arguments.value(0)) ? 0 : 32);
        });
    }

    FakeMountService mounts;
    FakeProcessRunner runner;
    VolumeEjector ejector{mounts, runner};
};

}  // namespace

TEST_F(VolumeEjectorTest, LoopCardIsUnmountedThenDetached) {
    umountUnmounts();
    runner.answer("losetup", [this](const QStringList& arguments) {
        mounts.setLoopBacking(arguments.value(1), {});
        return FakeProcessRunner::exited(0);
    });

    QString error;
    EXPECT_TRUE(ejector.ejectVolume(kCard + "/", &error)) << error.toStdString();
    EXPECT_EQ(runner.commandLines(), QStringList({"umount " + kCard, "losetup -d " + kCardDevice}));
    for (const FakeProcessRunner::Call& call : runner.calls()) {
        EXPECT_GT(call.timeoutSeconds, 0) << call.program.toStdString();
    }
    EXPECT_FALSE(mounts.entryForMountPoint(kCard));
    EXPECT_TRUE(mounts.loopBackingFile(kCardDevice).isEmpty());
}

TEST_F(VolumeEjectorTest, HungUmountFailsWithAReasonAndDetachesNothing) {
    runner.hang("umount");
    runner.answer("losetup", FakeProcessRunner::exited(0));

    QString error;
    EXPECT_FALSE(ejector.ejectVolume(kCard, &error));
    EXPECT_TRUE(error.contains("did not finish")) << error.toStdString();
    EXPECT_TRUE(error.contains(kCard)) << error.toStdString();
    // One attempt: a umount that hung would only hang again.
    EXPECT_EQ(runner.commandLines(), QStringList{"umount " + kCard});
    EXPECT_TRUE(mounts.isMountedAt(kCard, kCardDevice));
    EXPECT_EQ(mounts.loopBackingFile(kCardDevice), kImage);
}

TEST_F(VolumeEjectorTest, BusyCardsStayMountedAndOnlyCardsAreTouched) {
    runner.answer("umount", FakeProcessRunner::exited(32, "target is busy"));
    QString error;
    QString device;
    EXPECT_FALSE(ejector.unmountVolume(kCard, &error, &device));
    EXPECT_EQ(error, kCard + " is busy and stays mounted");
    EXPECT_TRUE(device.isEmpty());
    // A few tries for a reader letting go, then FUSE's own tools.
    EXPECT_EQ(runner.commandLines().count("umount " + kCard), 5);
    EXPECT_TRUE(runner.commandLines().contains("fusermount -u " + kCard));

    // Without root and without udisks2, nothing is run at all.
    FakeProcessRunner user;
    user.setRunsAsRoot(false);
    EXPECT_FALSE(VolumeEjector(mounts, user).ejectVolume(kCard, &error));
    EXPECT_TRUE(error.contains("only root may unmount")) << error.toStdString();
    EXPECT_TRUE(user.calls().empty());

    // A folder that is no mount, or a mount of something that is no block device.
    mounts.mount(FakeMountService::entry("/run/user/0", "tmpfs", "tmpfs"));
    FakeProcessRunner untouched;
    for (const char* path : {"/media/tester/NONE", "/run/user/0"}) {
        EXPECT_FALSE(VolumeEjector(mounts, untouched).ejectVolume(path, &error));
        EXPECT_TRUE(error.contains("is not where a block device is mounted"));
    }
    EXPECT_TRUE(untouched.calls().empty());
}
