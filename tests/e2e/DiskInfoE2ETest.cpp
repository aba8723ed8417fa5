// Disk information and the mount table against a real exFAT card on a loop device.

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <algorithm>
#include <memory>

#include "CardTest.h"
#include "LinuxDiskInformation.h"
#include "MountTable.h"
#include "QVTaskEx.h"
#include "SystemTool.h"
#include "TestFiles.h"
#include "TestMount.h"

namespace {

class DiskInfoE2ETest : public CardTest {};

bool listsVolume(const QString& mountPoint, const QString& device) {
    const std::vector<MountEntry> volumes = MountTable::localVolumes();
    return std::any_of(volumes.begin(), volumes.end(), [&](const MountEntry& entry) {
        return entry.mountPoint == mountPoint && entry.source == device;
    });
}

}  // namespace

TEST_F(DiskInfoE2ETest, DescribesAMountedExfatCard) {
    const QString blkid = SystemTool::find("blkid");
    if (blkid.isEmpty())
        GTEST_SKIP() << "blkid is not installed";
    // Mount points go to the tools and come back from the kernel escaped; neither may disturb
    // a name full of shell syntax and white space.
    const QString folder = QStringLiteral("-n \"$(touch x)\" 'q'\tB\\s;\nCARD");
    const auto card = mountCard("-n $(x) A1", folder);
    ASSERT_TRUE(card);
    EXPECT_EQ(card->mountPoint(), mediaPath(folder));
    EXPECT_FALSE(QFile::exists("x"));
    EXPECT_TRUE(listsVolume(card->mountPoint(), card->device()));
    EXPECT_EQ(MountTable::volumeMountPointForPath(card->mountPoint() + "/a/b"), card->mountPoint());
    const auto tool = [&](const QString& name, const QStringList& arguments) {
        return QVTaskEx::stringFromTask(name, arguments + QStringList{card->device()}).trimmed();
    };

    const std::optional<PropertyList> info =
        LinuxDiskInformation().forMountPoint(card->mountPoint());
    ASSERT_TRUE(info);
    const PropertyList& disk = *info;
    EXPECT_EQ(disk["DeviceNode"].toString(), card->device());
    EXPECT_EQ(disk["MountPoint"].toString(), card->mountPoint());
    EXPECT_EQ(disk["FilesystemType"].toString(), "exfat");
    EXPECT_EQ(disk["VolumeName"].toString(), "-n $(x) A1");
    const QString volumeUuid = tool(blkid, {"-s", "UUID", "-o", "value"});
    EXPECT_FALSE(volumeUuid.isEmpty());
    EXPECT_EQ(disk["VolumeUUID"].toString(), volumeUuid);
    // The partition UUID, else the disk's serial, as lsblk finds them; a loop device has
    // neither, so nothing may stand in for them.
    const QString lsblk = SystemTool::find("lsblk");
    QString diskUuid = tool(lsblk, {"-dno", "PARTUUID"});
    if (diskUuid.isEmpty())
        diskUuid = tool(lsblk, {"-dno", "SERIAL"});
    EXPECT_EQ(disk.contains("DiskUUID"), !diskUuid.isEmpty());
    EXPECT_EQ(disk["DiskUUID"].toString(), diskUuid);

    const PropertyList& total = disk["TotalSize"];
    const qint64 free = disk["FreeSpace"].toInteger();
    ASSERT_EQ(total.type(), PropertyList::Type::Integer);
    EXPECT_LE(total.toInteger(), TestMount::kCardSize);
    EXPECT_GE(total.toInteger(), TestMount::kCardSize * 9 / 10);
    EXPECT_GT(free, 0);
    EXPECT_LE(free, total.toInteger());
    ASSERT_EQ(disk["Removable"].type(), PropertyList::Type::Boolean);
    EXPECT_TRUE(disk["Removable"].toBool());

    // Free space follows what is written to the card.
    TestFiles::write(card->mountPoint() + "/Clip.MOV", TestFiles::randomBytes(8 * 1024 * 1024, 5));
    const std::optional<PropertyList> after =
        LinuxDiskInformation().forMountPoint(card->mountPoint());
    ASSERT_TRUE(after);
    EXPECT_LE((*after)["FreeSpace"].toInteger(), free - 8 * 1024 * 1024);
    EXPECT_EQ((*after)["TotalSize"].toInteger(), total.toInteger());
    const std::optional<MountEntry> entry = MountTable::entryForMountPoint(card->mountPoint());
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->fsType, "fuseblk");
    EXPECT_FALSE(entry->readOnly);
}
