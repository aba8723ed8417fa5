// Which mounted volumes are cards (under a media root, or on a removable or hot-plugged
// device), never the system disk; and the device facts read from /sys.

#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <map>

#include "RemovableMedia.h"
#include "TestFiles.h"

namespace {

MountEntry entry(const QString& mountPoint, const QString& source) {
    MountEntry made;
    made.mountPoint = mountPoint;
    made.source = source;
    made.fsType = "exfat";
    return made;
}

QStringList mountPointsOf(const std::vector<MountEntry>& entries) {
    QStringList points;
    for (const MountEntry& e : entries) {
        points << e.mountPoint;
    }
    return points;
}

}  // namespace

TEST(RemovableMediaTest, ChoosesCardsAndNeverTheSystemDisk) {
    using Facts = RemovableMedia::DeviceFacts;
    const std::map<QString, Facts> devices = {
        {"/dev/sda2", Facts{}},
        {"/dev/sdb1", Facts{true, false}},
        {"/dev/sdc1", Facts{false, true}},
        {"/dev/nvme0n1p3", Facts{}},
        // A removable system disk (a live USB stick) is still the system disk.
        {"/dev/sdz1", Facts{true, true}},
    };
    const RemovableMedia::FactsReader facts = [&](const QString& device) {
        const auto found = devices.find(device);
        return found != devices.end() ? found->second : Facts{};
    };
    const QStringList roots = {"/tmp/roots x/", "/media/ann/", "/media/"};
    const std::vector<MountEntry> volumes = {
        entry("/", "/dev/sdz1"),
        entry("/home", "/dev/nvme0n1p3"),
        entry("/media/ann/A001", "/dev/sda2"),
        entry("/mnt/reader", "/dev/sdb1"),
        // An image file on a loop device outside the media roots: a snap package.
        entry("/snap/core/17", "/dev/loop3"),
        entry("/mnt/usb", "/dev/sdc1"),
        entry("/tmp/roots x/B 002", "/dev/nvme0n1p3"),
        // A media root itself, a sibling sharing its prefix, and a bind of the system disk.
        entry("/media", "/dev/sda2"),
        entry("/mediaX/C003", "/dev/sda2"),
        entry("/media/ann/etc-bind", "/dev/sdz1"),
    };

    EXPECT_EQ(mountPointsOf(RemovableMedia::removableAmong(volumes, "/dev/sdz1", roots, facts)),
              QStringList({"/media/ann/A001", "/mnt/reader", "/mnt/usb", "/tmp/roots x/B 002"}));

    // "/" stays out even when nothing is known about the device mounted there.
    const std::vector<MountEntry> rootOnly = {entry("/", "/dev/sdb1")};
    EXPECT_TRUE(RemovableMedia::removableAmong(rootOnly, QString(), roots, facts).empty());
}

// A fake /sys tree: partitions take their disk's attributes, USB shows in the path.
TEST(RemovableMediaTest, ReadsDeviceFactsFromSys) {
    const QTemporaryDir sys;
    ASSERT_TRUE(sys.isValid());
    const QString usb = sys.filePath("pci0/usb2/2-1/host6/block/sdb");
    const QString reader = sys.filePath("pci0/ata1/block/sdc");
    TestFiles::write(usb + "/removable", "0\n");
    TestFiles::write(usb + "/sdb1/partition", "1\n");
    TestFiles::write(reader + "/removable", "1\n");
    TestFiles::write(reader + "/sdc1/partition", "1\n");

    const auto onUsb = RemovableMedia::factsAtSysPath(usb + "/sdb1");
    EXPECT_TRUE(onUsb.hotPlugged && !onUsb.removable);
    const auto onReader = RemovableMedia::factsAtSysPath(reader + "/sdc1");
    EXPECT_TRUE(onReader.removable && !onReader.hotPlugged);

    // Nothing known for what is not a block device.
    const auto none = RemovableMedia::factsForDevice(sys.path());
    EXPECT_FALSE(none.removable || none.hotPlugged);
}
