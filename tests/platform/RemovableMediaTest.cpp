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
    made.fsType = QStringLiteral("exfat");
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
        {QStringLiteral("/dev/sda2"), Facts{}},
        {QStringLiteral("/dev/sdb1"), Facts{true, false}},
        {QStringLiteral("/dev/sdc1"), Facts{false, true}},
        {QStringLiteral("/dev/nvme0n1p3"), Facts{}},
        // A removable system disk (a live USB stick) is still the system disk.
        {QStringLiteral("/dev/sdz1"), Facts{true, true}},
    };
    const RemovableMedia::FactsReader facts = [&](const QString& device) {
        const auto found = devices.find(device);
        return found != devices.end() ? found->second : Facts{};
    };
    const QStringList roots = {QStringLiteral("/tmp/roots x/"), QStringLiteral("/media/ann/"),
                               QStringLiteral("/media/")};
    const std::vector<MountEntry> volumes = {
        entry(QStringLiteral("/"), QStringLiteral("/dev/sdz1")),
        entry(QStringLiteral("/home"), QStringLiteral("/dev/nvme0n1p3")),
        entry(QStringLiteral("/media/ann/A001"), QStringLiteral("/dev/sda2")),
        entry(QStringLiteral("/mnt/reader"), QStringLiteral("/dev/sdb1")),
        // An image file on a loop device outside the media roots: a snap package.
        entry(QStringLiteral("/snap/core/17"), QStringLiteral("/dev/loop3")),
        entry(QStringLiteral("/mnt/usb"), QStringLiteral("/dev/sdc1")),
        entry(QStringLiteral("/tmp/roots x/B 002"), QStringLiteral("/dev/nvme0n1p3")),
        // A media root itself, a sibling sharing its prefix, and a bind of the system disk.
        entry(QStringLiteral("/media"), QStringLiteral("/dev/sda2")),
        entry(QStringLiteral("/mediaX/C003"), QStringLiteral("/dev/sda2")),
        entry(QStringLiteral("/media/ann/etc-bind"), QStringLiteral("/dev/sdz1")),
    };

    EXPECT_EQ(mountPointsOf(RemovableMedia::removableAmong(volumes, QStringLiteral("/dev/sdz1"),
                                                           roots, facts)),
              QStringList({QStringLiteral("/media/ann/A001"), QStringLiteral("/mnt/reader"),
                           QStringLiteral("/mnt/usb"), QStringLiteral("/tmp/roots x/B 002")}));

    // "/" stays out even when nothing is known about the device mounted there.
    const std::vector<MountEntry> rootOnly = {
        entry(QStringLiteral("/"), QStringLiteral("/dev/sdb1"))};
    EXPECT_TRUE(RemovableMedia::removableAmong(rootOnly, QString(), roots, facts).empty());
}

// A fake /sys tree: partitions take their disk's attributes, USB shows in the path.
TEST(RemovableMediaTest, ReadsDeviceFactsFromSys) {
    const QTemporaryDir sys;
    ASSERT_TRUE(sys.isValid());
    const QString usb = sys.filePath(QStringLiteral("pci0/usb2/2-1/host6/block/sdb"));
    const QString reader = sys.filePath(QStringLiteral("pci0/ata1/block/sdc"));
    TestFiles::write(usb + QStringLiteral("/removable"), "0\n");
    TestFiles::write(usb + QStringLiteral("/sdb1/partition"), "1\n");
    TestFiles::write(reader + QStringLiteral("/removable"), "1\n");
    TestFiles::write(reader + QStringLiteral("/sdc1/partition"), "1\n");

    const auto onUsb = RemovableMedia::factsAtSysPath(usb + QStringLiteral("/sdb1"));
    EXPECT_TRUE(onUsb.hotPlugged && !onUsb.removable);
    const auto onReader = RemovableMedia::factsAtSysPath(reader + QStringLiteral("/sdc1"));
    EXPECT_TRUE(onReader.removable && !onReader.hotPlugged);

    // Nothing known for what is not a block device.
    const auto none = RemovableMedia::factsForDevice(sys.path());
    EXPECT_FALSE(none.removable || none.hotPlugged);
}
