// Labels for erased cards, and the refusals that keep erase and eject away from anything
// that isn't a mounted card.

#include <gtest/gtest.h>

#include "FakeDiskInformation.h"
#include "FakeMountService.h"
#include "FakeProcessRunner.h"
#include "VolumeEraser.h"

namespace {

// Device names no udisks daemon knows, so erase takes the command-line way as root.
QString device(const char* name) {
    return QString("/dev/cardsweep-test-") + name;
}

const QString kDestination = "/media/tester/DEST";
const QString kSameDisk = "/media/tester/SAMEDISK";
const QString kCard = "/media/tester/CARD";
const QString kOnRootDisk = "/media/tester/ROOTDISK";
const QString kRootBind = "/media/tester/ROOTBIND";
const QString kFixed = "/mnt/fixed";

// "/" on sda2; a destination on sdb1 with a card on sdb2 beside it; a card alone on sdc1;
// a card on another partition of the system disk, and the system partition bound elsewhere.
class FakeEraseTest : public testing::Test {
  protected:
    void SetUp() override {
        add("sda2", 0x802, 0x800, "/", false);
        add("sda3", 0x803, 0x800, kOnRootDisk, true);
        add("sdb1", 0x811, 0x810, kDestination, true);
        add("sdb2", 0x812, 0x810, kSameDisk, true);
        add("sdc1", 0x821, 0x820, kCard, true);
        add("sdd1", 0x831, 0x830, kFixed, false);
        mounts.mount(FakeMountService::entry(kRootBind, device("sda2")));
        mounts.setRemovable(device("sda2"));  // as if /sys said so: "/" still wins
        answerMounts(runner);
        runner.answer("mount.exfat-fuse", [this](const QStringList& arguments) {
            mounts.mount(
                FakeMountService::entry(arguments.value(1), arguments.value(0), "fuseblk"));
            return FakeProcessRunner::exited(0);
        });
        runner.answer("mkfs.fat", FakeProcessRunner::exited(0));
        runner.answer("mkfs.exfat", FakeProcessRunner::exited(0));
    }

    // umount and mount that change the fake table as the real tools would.
    void answerMounts(FakeProcessRunner& tools) {
        tools.answer("umount", [this](const QStringList& arguments) {
            return FakeProcessRunner::exited(mounts.unmount(arguments.value(0)) ? 0 : 32);
        });
        tools.answer("mount", [this](const QStringList& arguments) {
            mounts.mount(FakeMountService::entry(arguments.value(1), arguments.value(0)));
            return FakeProcessRunner::exited(0);
        });
    }

    void add(const char* name, quint64 number, quint64 disk, const QString& mountPoint,
             bool removable) {
        mounts.addBlockDevice(device(name), number, disk);
        mounts.setRemovable(device(name), removable);
        mounts.mount(FakeMountService::entry(mountPoint, device(name)));
    }

    // Erases, expecting a refusal naming what is kept, with nothing run and nothing unmounted.
    void expectRefused(const QString& mountPoint, const QStringList& kept, const QString& why) {
        SCOPED_TRACE(mountPoint.toStdString());
        const std::size_t mounted = mounts.localVolumes().size();
        QString error;
        EXPECT_FALSE(eraser.eraseVolume(mountPoint, "CARD", kept, &error));
        EXPECT_TRUE(error.contains(why)) << error.toStdString();
        EXPECT_TRUE(runner.calls().empty()) << runner.commandLines().join(u'\n').toStdString();
        EXPECT_EQ(mounts.localVolumes().size(), mounted);
    }

    FakeMountService mounts;
    FakeProcessRunner runner;
    FakeDiskInformation disks;
    VolumeEraser eraser{mounts, runner, disks};
};

}  // namespace

TEST_F(FakeEraseTest, RefusesTheSystemDiskDestinationsDisksAndFixedDisks) {
    const QStringList destinations{kDestination + "/Offload/not yet made"};
    // Another partition of a destination's disk, and a destination inside the card itself.
    expectRefused(kSameDisk, destinations, "which must be kept");
    expectRefused(kCard, {kCard + "/backup"}, "which must be kept");
    // The device of "/", under another name, and another partition of its disk.
    expectRefused(kRootBind, destinations, "holds /, which must be kept");
    expectRefused(kOnRootDisk, destinations, "holds /, which must be kept");
    expectRefused(kFixed, destinations, "is not a removable card");
    expectRefused("/media/tester/NONE", destinations, "is not where a block device is mounted");
}

// A card as the mount table has it and as its device says it is, and what erasing it runs
// after "umount": one command a line, one argument between each "|"; none when refused.
struct EraseCase {
    const char* name;
    const char* tableType;
    const char* deviceType;  // "" when the device can't be read
    const char* label;       // the card's own; "" when it can't be read
    const char* commands;
    friend void PrintTo(const EraseCase& c, std::ostream* os) { *os << c.name; }
};

class EraseKeepsTheFormat : public FakeEraseTest, public testing::WithParamInterface<EraseCase> {};

TEST_P(EraseKeepsTheFormat, MakesTheSameFileSystemWithTheSameLabelAndMountsItAgain) {
    const EraseCase& c = GetParam();
    mounts.unmount(kCard);
    mounts.mount(FakeMountService::entry(kCard, device("sdc1"), c.tableType));
    PropertyList::Dictionary info;
    if (*c.deviceType != 0)
        info["FilesystemType"] = c.deviceType;
    if (*c.label != 0)
        info["VolumeName"] = c.label;
    disks.set(kCard, PropertyList(info));
    QString error = "stale";
    const bool erased = eraser.eraseVolume(kCard, "from the list", {}, &error);
    const QStringList expected = QString(c.commands).split(u'\n', Qt::SkipEmptyParts);
    const std::vector<FakeProcessRunner::Call> calls = runner.calls();
    EXPECT_EQ(erased, !expected.isEmpty()) << error.toStdString();
    if (expected.isEmpty()) {
        EXPECT_TRUE(error.contains("only exFAT and FAT cards are erased")) << error.toStdString();
        EXPECT_TRUE(calls.empty()) << runner.commandLines().join(u'\n').toStdString();
        return;
    }
    EXPECT_TRUE(error.isEmpty()) << error.toStdString();
    ASSERT_EQ(calls.size(), 3U) << runner.commandLines().join(u'\n').toStdString();
    EXPECT_EQ(calls[0].program + ' ' + calls[0].arguments.join(' '), "umount " + kCard);
    for (std::size_t i = 1; i < calls.size(); ++i) {
        QStringList command = expected[qsizetype(i - 1)].split(u'|');
        command.replaceInStrings("DEV", device("sdc1")).replaceInStrings("CARD", kCard);
        EXPECT_EQ(calls[i].program, command.takeFirst());
        EXPECT_EQ(calls[i].arguments, command) << "one argument each, no shell quoting";
        EXPECT_GT(calls[i].timeoutSeconds, 0) << calls[i].program.toStdString();
    }
    EXPECT_TRUE(mounts.isMountedAt(kCard, device("sdc1")));
}

// exFAT through FUSE: the table only says "fuseblk"; it goes back the same way.
INSTANTIATE_TEST_SUITE_P(
    Cards, EraseKeepsTheFormat,
    testing::Values(EraseCase{"ExfatThroughFuse", "fuseblk", "exfat", "A001 \"day 2\" it's",
                              "mkfs.exfat|-L|A001 \"day 2\" it|DEV\nmount.exfat-fuse|DEV|CARD"},
                    EraseCase{"ExfatUnreadable", "exfat", "", "",
                              "mkfs.exfat|-L|from the list|DEV\nmount|DEV|CARD"},
                    EraseCase{"Fat", "vfat", "vfat", "cam \"b\" $(x)",
                              "mkfs.fat|-F|32|-n|CAM B $(X)|DEV\nmount|DEV|CARD"},
                    EraseCase{"FatNoLabelLeft", "vfat", "vfat", "*?",
                              "mkfs.fat|-F|32|DEV\nmount|DEV|CARD"},
                    EraseCase{"Ntfs", "ntfs", "ntfs", "CARD", ""},
                    EraseCase{"FuseUnreadable", "fuseblk", "", "CARD", ""}),
    [](const testing::TestParamInfo<EraseCase>& info) { return std::string(info.param.name); });

TEST_F(FakeEraseTest, AFailedFormatPutsTheCardBack) {
    runner.answer("mkfs.fat", FakeProcessRunner::exited(1, "mkfs.fat: bad"));
    QString error;
    EXPECT_FALSE(eraser.eraseVolume(kCard, "CARD", {}, &error));
    EXPECT_EQ(error, QStringLiteral("mkfs.fat on %1 exited with status 1").arg(device("sdc1")));
    EXPECT_EQ(runner.commandLines().constLast(),
              QStringLiteral("mount %1 %2").arg(device("sdc1"), kCard));
    EXPECT_TRUE(mounts.isMountedAt(kCard, device("sdc1")));

    // A format that hangs is given up on, and the card still goes back.
    FakeProcessRunner hanging;
    answerMounts(hanging);
    hanging.hang("mkfs.fat");
    EXPECT_FALSE(VolumeEraser(mounts, hanging, disks).eraseVolume(kCard, "C", {}, &error));
    EXPECT_TRUE(error.contains("did not finish")) << error.toStdString();
    EXPECT_TRUE(mounts.isMountedAt(kCard, device("sdc1")));

    // A card that can't be unmounted (no root, no udisks2) is never formatted.
    FakeProcessRunner user;
    user.setRunsAsRoot(false);
    EXPECT_FALSE(VolumeEraser(mounts, user, disks).eraseVolume(kCard, "C", {}, &error));
    EXPECT_TRUE(user.calls().empty());
    EXPECT_TRUE(mounts.isMountedAt(kCard, device("sdc1")));
}

// Beyond the labels the erase cases above give.
TEST(VolumeEraserTest, LabelsFitTheFileSystem) {
    // FAT: upper case, refused characters left out (not counted in the eleven), no controls or
    // characters outside its code page. exFAT: any character but controls, up to 15 UTF-16
    // units, never half a pair.
    const struct {
        bool fat;
        const char* given;
        const char* label;
    } cases[] = {
        {true, "a001 camera card", "A001 CAMERA"},
        {true, "a*b?c/d\\e\"f:g<h>i|j", "ABCDEFGHIJ"},
        {true, "**********day.1,2;3+4=5[6]789", "DAY12345678"},
        {true, "cam\tb\nroll\u00e9\u30ab", "CAMBROLL"},
        {false, "a001 \"Tag\"\tB/C\u00e9", "a001 \"Tag\"B/C\u00e9"},
        {false, "0123456789abcdefgh", "0123456789abcde"},
        {false, "01234567890123\U0001F3AC", "01234567890123"},
    };
    for (const auto& c : cases) {
        const QString given = QString::fromUtf8(c.given);
        EXPECT_EQ(c.fat ? VolumeEraser::fatLabel(given) : VolumeEraser::exfatLabel(given),
                  QString::fromUtf8(c.label))
            << c.given;
    }
}
