// Disk information and the mount table against real exFAT cards on loop devices.

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <algorithm>
#include <memory>

#include "CardTest.h"
#include "DiskInfo.h"
#include "LoopCard.h"
#include "MountTable.h"
#include "QVFileManager.h"
#include "QVTaskEx.h"
#include "TestFiles.h"

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
    const QString blkid = LoopCard::findTool(QStringLiteral("blkid"));
    if (blkid.isEmpty()) {
        GTEST_SKIP() << "blkid is not installed";
    }
    const auto card = mountCard(QStringLiteral("A001 CARD"), QStringLiteral("A001 CARD"));
    ASSERT_TRUE(card);

    const std::optional<PropertyList> info = DiskInfo::forMountPoint(card->mountPoint());
    ASSERT_TRUE(info);
    const PropertyList& disk = *info;
    EXPECT_EQ(disk.type(), PropertyList::Type::Dictionary);
    EXPECT_EQ(disk[QStringLiteral("DeviceNode")].toString(), card->device());
    EXPECT_EQ(disk[QStringLiteral("MountPoint")].toString(), card->mountPoint());
    EXPECT_EQ(disk[QStringLiteral("FilesystemType")].toString(), QStringLiteral("exfat"));
    EXPECT_EQ(disk[QStringLiteral("VolumeName")].toString(), QStringLiteral("A001 CARD"));

    const QString expectedUuid =
        QVTaskEx::stringFromTask(
            blkid, {QStringLiteral("-s"), QStringLiteral("UUID"), QStringLiteral("-o"),
                    QStringLiteral("value"), card->device()})
            .trimmed();
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^[0-9A-F]{4}-[0-9A-F]{4}$"))
                    .match(expectedUuid)
                    .hasMatch())
        << expectedUuid.toStdString();
    EXPECT_EQ(disk[QStringLiteral("VolumeUUID")].toString(), expectedUuid);
    // The partition UUID, else the disk's serial, as lsblk finds them; a loop device has
    // neither, so nothing may stand in for them.
    QString diskUuid;
    for (const char* column : {"PARTUUID", "SERIAL"}) {
        if (diskUuid.isEmpty()) {
            diskUuid = QVTaskEx::stringFromTask(
                           LoopCard::findTool(QStringLiteral("lsblk")),
                           {QStringLiteral("-dno"), QString::fromLatin1(column), card->device()})
                           .trimmed();
        }
    }
    EXPECT_EQ(disk.contains(QStringLiteral("DiskUUID")), !diskUuid.isEmpty());
    EXPECT_EQ(disk[QStringLiteral("DiskUUID")].toString(), diskUuid);

    const PropertyList& total = disk[QStringLiteral("TotalSize")];
    const PropertyList& free = disk[QStringLiteral("FreeSpace")];
    ASSERT_EQ(total.type(), PropertyList::Type::Integer);
    ASSERT_EQ(free.type(), PropertyList::Type::Integer);
    EXPECT_LE(total.toInteger(), LoopCard::kDefaultSize);
    EXPECT_GE(total.toInteger(), LoopCard::kDefaultSize * 9 / 10);
    EXPECT_GT(free.toInteger(), 0);
    EXPECT_LE(free.toInteger(), total.toInteger());

    ASSERT_EQ(disk[QStringLiteral("Removable")].type(), PropertyList::Type::Boolean);
    EXPECT_TRUE(disk[QStringLiteral("Removable")].toBool());

    // Free space follows what is written to the card.
    const QByteArray bytes = TestFiles::randomBytes(8 * 1024 * 1024, 5);
    TestFiles::write(card->mountPoint() + QStringLiteral("/Clip.MOV"), bytes);
    const std::optional<PropertyList> after = DiskInfo::forMountPoint(card->mountPoint());
    ASSERT_TRUE(after);
    EXPECT_LE((*after)[QStringLiteral("FreeSpace")].toInteger(),
              free.toInteger() - 8 * 1024 * 1024);
    EXPECT_EQ((*after)[QStringLiteral("TotalSize")].toInteger(), total.toInteger());

    // exFAT ignores letter case, so only the way through a free name renames the clip.
    ASSERT_TRUE(QVFileManager::moveFile(card->mountPoint() + QStringLiteral("/Clip.MOV"),
                                        card->mountPoint() + QStringLiteral("/clip.mov"), 5));
    EXPECT_EQ(QDir(card->mountPoint()).entryList(QDir::Files), QStringList{"clip.mov"});
    EXPECT_EQ(TestFiles::read(card->mountPoint() + QStringLiteral("/clip.mov")), bytes);
}

TEST_F(DiskInfoE2ETest, MountTableFindsTheCardUntilItIsPulled) {
    const auto card = mountCard(QStringLiteral("A001 CARD"), QStringLiteral("A001 CARD"));
    ASSERT_TRUE(card);
    const QString mountPoint = card->mountPoint();
    const QString inside = mountPoint + QStringLiteral("/DCIM/100 CLIPS");
    ASSERT_TRUE(QDir().mkpath(inside));

    EXPECT_TRUE(listsVolume(mountPoint, card->device()));
    const std::optional<MountEntry> entry = MountTable::entryForMountPoint(mountPoint);
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->fsType, QStringLiteral("fuseblk"));
    EXPECT_FALSE(entry->readOnly);
    EXPECT_EQ(MountTable::volumeMountPointForPath(inside), mountPoint);
    const QString uuid =
        (*DiskInfo::forMountPoint(mountPoint))[QStringLiteral("VolumeUUID")].toString();

    // Pulled while a file on it is open: gone from the table at once.
    QFile open(inside + QStringLiteral("/held.mov"));
    ASSERT_TRUE(open.open(QIODevice::WriteOnly));
    ASSERT_TRUE(open.flush());
    ASSERT_TRUE(card->unmount());
    open.close();
    EXPECT_FALSE(card->isMounted());
    EXPECT_FALSE(listsVolume(mountPoint, card->device()));
    EXPECT_FALSE(DiskInfo::forMountPoint(mountPoint));
    EXPECT_NE(MountTable::volumeMountPointForPath(inside), mountPoint);

    // Back in, it is the same card with the same files.
    ASSERT_TRUE(card->remount()) << card->error().toStdString();
    EXPECT_TRUE(listsVolume(mountPoint, card->device()));
    EXPECT_TRUE(QFileInfo(inside).isDir());
    const std::optional<PropertyList> again = DiskInfo::forMountPoint(mountPoint);
    ASSERT_TRUE(again);
    EXPECT_EQ((*again)[QStringLiteral("VolumeUUID")].toString(), uuid);
}

// Mount points go to the tools and come back from the kernel escaped; neither may
// disturb a name full of shell syntax and white space.
TEST_F(DiskInfoE2ETest, OddMountPointNamesSurviveTheRoundTrip) {
    const QString folder = QStringLiteral("-n \"$(touch x)\" 'q'\tB\\s;\nCARD");
    const auto card = mountCard(QStringLiteral("-n $(x)"), folder);
    ASSERT_TRUE(card);
    EXPECT_EQ(card->mountPoint(), mediaPath(folder));
    EXPECT_FALSE(QFile::exists(QStringLiteral("x")));

    const std::optional<PropertyList> info = DiskInfo::forMountPoint(card->mountPoint());
    ASSERT_TRUE(info);
    EXPECT_EQ((*info)[QStringLiteral("VolumeName")].toString(), QStringLiteral("-n $(x)"));
    EXPECT_EQ((*info)[QStringLiteral("MountPoint")].toString(), card->mountPoint());
    EXPECT_TRUE(listsVolume(card->mountPoint(), card->device()));
    EXPECT_EQ(MountTable::volumeMountPointForPath(card->mountPoint() + QStringLiteral("/a/b")),
              card->mountPoint());
}
