// Labels for erased cards, and the refusals that keep erase and eject away from anything
// that isn't a mounted card.

#include <gtest/gtest.h>

#include <QTemporaryDir>

#include "FakeDiskInformation.h"
#include "FakeMountService.h"
#include "FakeProcessRunner.h"
#include "LinuxDiskInformation.h"
#include "LinuxMountService.h"
#include "PosixProcessRunner.h"
#include "VolumeEjector.h"
#include "VolumeEraser.h"

namespace {

// Device names no udisks daemon knows, so erase takes the command-line way as root.
QString device(const char* name) {
    return QStringLiteral("/dev/cardsweep-test-") + QLatin1StringView(name);
}

const QString kDestination = QStringLiteral("/media/tester/DEST");
const QString kSameDisk = QStringLiteral("/media/tester/SAMEDISK");
const QString kCard = QStringLiteral("/media/tester/CARD");
const QString kOnRootDisk = QStringLiteral("/media/tester/ROOTDISK");
const QString kRootBind = QStringLiteral("/media/tester/ROOTBIND");
const QString kFixed = QStringLiteral("/mnt/fixed");

// "/" on sda2; a destination on sdb1 with a card on sdb2 beside it; a card alone on sdc1;
// a card on another partition of the system disk, and the system partition bound elsewhere.
class FakeEraseTest : public testing::Test {
  protected:
    void SetUp() override {
        add("sda2", 0x802, 0x800, QStringLiteral("/"), false);
        add("sda3", 0x803, 0x800, kOnRootDisk, true);
        add("sdb1", 0x811, 0x810, kDestination, true);
        add("sdb2", 0x812, 0x810, kSameDisk, true);
        add("sdc1", 0x821, 0x820, kCard, true);
        add("sdd1", 0x831, 0x830, kFixed, false);
        mounts.mount(FakeMountService::entry(kRootBind, device("sda2")));
        mounts.setRemovable(device("sda2"));  // as if /sys said so: "/" still wins
        runner.answer(QStringLiteral("umount"), [this](const QStringList& arguments) {
            return FakeProcessRunner::exited(mounts.unmount(arguments.value(0)) ? 0 : 32);
        });
        runner.answer(QStringLiteral("mount"), [this](const QStringList& arguments) {
            mounts.mount(FakeMountService::entry(arguments.value(1), arguments.value(0)));
            return FakeProcessRunner::exited(0);
        });
        runner.answer(QStringLiteral("mount.exfat-fuse"), [this](const QStringList& arguments) {
            mounts.mount(
                FakeMountService::entry(arguments.value(1), arguments.value(0), "fuseblk"));
            return FakeProcessRunner::exited(0);
        });
        runner.answer(QStringLiteral("mkfs.fat"), FakeProcessRunner::exited(0));
        runner.answer(QStringLiteral("mkfs.exfat"), FakeProcessRunner::exited(0));
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
        EXPECT_FALSE(eraser.eraseVolume(mountPoint, QStringLiteral("CARD"), kept, &error));
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
    const QStringList destinations{kDestination + QStringLiteral("/Offload/not yet made")};
    // Another partition of a destination's disk, and a destination inside the card itself.
    expectRefused(kSameDisk, destinations, QStringLiteral("which must be kept"));
    expectRefused(kCard, {kCard + QStringLiteral("/backup")}, QStringLiteral("which must be kept"));
    // The device of "/", under another name, and another partition of its disk.
    expectRefused(kRootBind, destinations, QStringLiteral("holds /, which must be kept"));
    expectRefused(kOnRootDisk, destinations, QStringLiteral("holds /, which must be kept"));
    expectRefused(kFixed, destinations, QStringLiteral("is not a removable card"));
    expectRefused(QStringLiteral("/media/tester/NONE"), destinations,
                  QStringLiteral("is not where a block device is mounted"));
}

// A card as the mount table has it and as its device says it is, and what erasing it runs.
struct EraseCase {
    const char* name;
    const char* tableType;
    const char* deviceType;  // "" when the device can't be read
    const char* label;       // the card's own; "" when it can't be read
    QStringList expected;    // command lines after "umount"; empty when refused
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
        info["VolumeName"] = QString::fromUtf8(c.label);
    disks.set(kCard, PropertyList(info));
    QString error = QStringLiteral("stale");
    const bool erased = eraser.eraseVolume(kCard, QStringLiteral("from the list"), {}, &error);
    if (c.expected.isEmpty()) {
        EXPECT_FALSE(erased);
        EXPECT_TRUE(error.contains("only exFAT and FAT cards are erased")) << error.toStdString();
        EXPECT_TRUE(runner.calls().empty()) << runner.commandLines().join(u'\n').toStdString();
        return;
    }
    EXPECT_TRUE(erased) << error.toStdString();
    EXPECT_TRUE(error.isEmpty()) << error.toStdString();
    const std::vector<FakeProcessRunner::Call> calls = runner.calls();
    ASSERT_EQ(calls.size(), 3U) << runner.commandLines().join(u'\n').toStdString();
    EXPECT_EQ(calls[0].program + ' ' + calls[0].arguments.join(' '), "umount " + kCard);
    for (std::size_t i = 1; i < calls.size(); ++i) {
        QStringList expected = c.expected[qsizetype(i - 1)].split(u'|');
        expected.replaceInStrings("DEV", device("sdc1"));
        expected.replaceInStrings("CARD", kCard);
        EXPECT_EQ(calls[i].program, expected.takeFirst());
        EXPECT_EQ(calls[i].arguments, expected) << "one argument each, no shell quoting";
        EXPECT_GT(calls[i].timeoutSeconds, 0) << calls[i].program.toStdString();
    }
    EXPECT_TRUE(mounts.isMountedAt(kCard, device("sdc1")));
}

INSTANTIATE_TEST_SUITE_P(
    Cards, EraseKeepsTheFormat,
    testing::Values(
        // exFAT through FUSE: the table only says "fuseblk"; it goes back the same way.
        EraseCase{"ExfatThroughFuse",
                  "fuseblk",
                  "exfat",
                  "A001 \"day 2\" it's",
                  {"mkfs.exfat|-L|A001 \"day 2\" it|DEV", "mount.exfat-fuse|DEV|CARD"}},
        EraseCase{"ExfatUnreadable",
                  "exfat",
                  "",
                  "",
                  {"mkfs.exfat|-L|from the list|DEV", "mount|DEV|CARD"}},
        EraseCase{"Fat",
                  "vfat",
                  "vfat",
                  "cam \"b\" $(x)",
                  {"mkfs.fat|-F|32|-n|CAM B $(X)|DEV", "mount|DEV|CARD"}},
        EraseCase{"FatNoLabelLeft", "vfat", "vfat", "*?", {"mkfs.fat|-F|32|DEV", "mount|DEV|CARD"}},
        EraseCase{"Ntfs", "ntfs", "ntfs", "CARD", {}},
        EraseCase{"FuseUnreadable", "fuseblk", "", "CARD", {}}),
    [](const testing::TestParamInfo<EraseCase>& info) { return std::string(info.param.name); });

TEST_F(FakeEraseTest, AFailedFormatPutsTheCardBack) {
    runner.answer(QStringLiteral("mkfs.fat"), FakeProcessRunner::exited(1, "mkfs.fat: bad"));
    QString error;
    EXPECT_FALSE(eraser.eraseVolume(kCard, QStringLiteral("CARD"), {}, &error));
    EXPECT_EQ(error, QStringLiteral("mkfs.fat on %1 exited with status 1").arg(device("sdc1")));
    EXPECT_EQ(runner.commandLines().constLast(),
              QStringLiteral("mount %1 %2").arg(device("sdc1"), kCard));
    EXPECT_TRUE(mounts.isMountedAt(kCard, device("sdc1")));

    // A format that hangs is given up on, and the card still goes back.
    FakeProcessRunner hanging;
    hanging.answer(QStringLiteral("umount"), [this](const QStringList& arguments) {
        return FakeProcessRunner::exited(mounts.unmount(arguments.value(0)) ? 0 : 32);
    });
    hanging.answer(QStringLiteral("mount"), [this](const QStringList& arguments) {
        mounts.mount(FakeMountService::entry(arguments.value(1), arguments.value(0)));
        return FakeProcessRunner::exited(0);
    });
    hanging.hang(QStringLiteral("mkfs.fat"));
    EXPECT_FALSE(
        VolumeEraser(mounts, hanging, disks).eraseVolume(kCard, QStringLiteral("C"), {}, &error));
    EXPECT_TRUE(error.contains(QStringLiteral("did not finish"))) << error.toStdString();
    EXPECT_TRUE(mounts.isMountedAt(kCard, device("sdc1")));

    // Without root or udisks2 the card is left as it was.
    FakeProcessRunner user;
    user.setRunsAsRoot(false);
    EXPECT_FALSE(
        VolumeEraser(mounts, user, disks).eraseVolume(kCard, QStringLiteral("C"), {}, &error));
    EXPECT_TRUE(user.calls().empty());
    EXPECT_TRUE(mounts.isMountedAt(kCard, device("sdc1")));
}

TEST(VolumeEraserTest, LabelsFitTheFileSystem) {
    EXPECT_EQ(VolumeEraser::fatLabel(QStringLiteral("card 1")), QStringLiteral("CARD 1"));
    EXPECT_EQ(VolumeEraser::fatLabel(QStringLiteral("a001 camera card")),
              QStringLiteral("A001 CAMERA"));
    EXPECT_EQ(VolumeEraser::fatLabel(QStringLiteral("a*b?c/d\\e\"f:g<h>i|j")),
              QStringLiteral("ABCDEFGHIJ"));
    // Refused characters don't count towards the eleven.
    EXPECT_EQ(VolumeEraser::fatLabel(QStringLiteral("**********day.1,2;3+4=5[6]789")),
              QStringLiteral("DAY12345678"));
    EXPECT_EQ(VolumeEraser::fatLabel(QStringLiteral("cam\tb\nroll\u00e9\u30ab")),
              QStringLiteral("CAMBROLL"));
    EXPECT_EQ(VolumeEraser::fatLabel(QStringLiteral("-n $(x)")), QStringLiteral("-N $(X)"));
    EXPECT_EQ(VolumeEraser::fatLabel(QStringLiteral("*?")), QString());
    // exFAT keeps case and any character but controls, up to 15 UTF-16 units, never half a
    // pair.
    EXPECT_EQ(VolumeEraser::exfatLabel(QStringLiteral("a001 \"Tag\"\tB/C\u00e9")),
              QStringLiteral("a001 \"Tag\"B/C\u00e9"));
    EXPECT_EQ(VolumeEraser::exfatLabel(QStringLiteral("0123456789abcdefgh")),
              QStringLiteral("0123456789abcde"));
    EXPECT_EQ(VolumeEraser::exfatLabel(QStringLiteral("01234567890123\U0001F3AC")),
              QStringLiteral("01234567890123"));
}

TEST(VolumeEraserTest, RefusesWhatIsNotAMountedCard) {
    LinuxMountService mounts;
    PosixProcessRunner runner;
    LinuxDiskInformation disks;
    const VolumeEraser eraser(mounts, runner, disks);
    const QTemporaryDir plain;
    ASSERT_TRUE(plain.isValid());
    const QStringList none;
    for (const QString& path : {plain.path(), plain.filePath(QStringLiteral("missing")),
                                QStringLiteral("/"), QStringLiteral("/proc"), QString()}) {
        QString error;
        EXPECT_FALSE(eraser.eraseVolume(path, QStringLiteral("CARD"), none, &error))
            << path.toStdString();
        EXPECT_FALSE(error.isEmpty()) << path.toStdString();
    }
    // "/" is refused whichever way it is mounted, also when it is given as a destination.
    QString error;
    EXPECT_FALSE(
        eraser.eraseVolume(QStringLiteral("/"), QStringLiteral("CARD"), {plain.path()}, &error));
    EXPECT_FALSE(error.isEmpty());

    for (const QString& path : {plain.path(), QStringLiteral("/proc")}) {
        QString ejectError;
        EXPECT_FALSE(VolumeEjector(mounts, runner).ejectVolume(path, &ejectError))
            << path.toStdString();
        EXPECT_FALSE(ejectError.isEmpty());
    }
    EXPECT_TRUE(plain.isValid());
}
