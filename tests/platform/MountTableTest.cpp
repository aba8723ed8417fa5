// The mount table: reading /proc/self/mountinfo with its escapes, which entries are local
// volumes, the topmost mount at a point, and the volume that holds a path.

#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>
#include <algorithm>

#include "MountTable.h"

namespace {

// As the kernel writes it: space, tab, newline and backslash as octal escapes, quotes as
// they are. One line is garbage, and /media/u/CARD is mounted twice.
const char kMountInfo[] =
    "21 26 0:20 / /proc rw,relatime - proc proc rw\n"
    "26 1 254:0 / / rw,relatime - ext4 /dev/vda rw,discard\n"
    "41 26 7:0 / /media/u/A001\\040CARD rw,nosuid,nodev,relatime - fuseblk /dev/loop0 "
    "rw,user_id=0,group_id=0,allow_other,blksize=4096\n"
    "42 26 8:17 / /media/u/CARD ro,relatime - exfat /dev/sdb1 rw,fmask=0022\n"
    "43 26 8:33 / /media/u/CARD2 rw,relatime - vfat /dev/sdc1 ro,fmask=0022\n"
    "this line is not a mount\n"
    "44 42 8:49 / /media/u/CARD/nested rw,relatime - ext4 /dev/sdd1 rw\n"
    "45 26 8:65 / /media/u/line\\012break\\011tab\\134back\"q'$(x) rw - exfat /dev/sde1 rw\n"
    "46 26 0:51 / /mnt/net rw - nfs4 server:/export rw\n"
    "47 26 0:52 / /media/u/RAM rw - tmpfs /dev/sdh1 rw\n"
    "48 26 0:53 / /media/u/SHARE rw - cifs /dev/sdg1 rw\n"
    "49 26 0:54 / /media/u/GONE rw - exfat /dev/notblock rw\n"
    "50 26 8:81 / /media/u/CARD rw,relatime - exfat /dev/sdf1 rw\n";

const QString kOddName = QStringLiteral("/media/u/line\nbreak\ttab\\back\"q'$(x)");

// Every device the table names is a block device except /dev/notblock.
bool fakeBlockDevice(const QString& source) {
    return source.startsWith(u"/dev/") && source != u"/dev/notblock";
}

class MountTableTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(dir_.isValid());
        QFile file(path());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(kMountInfo);
    }
    QString path() const { return dir_.filePath(QStringLiteral("mountinfo")); }
    std::vector<MountEntry> volumes() const {
        return MountTable::localVolumes(MountTable::read(path()), fakeBlockDevice);
    }

  private:
    QTemporaryDir dir_;
};

QStringList mountPoints(const std::vector<MountEntry>& entries) {
    QStringList points;
    for (const MountEntry& entry : entries) {
        points << entry.mountPoint;
    }
    return points;
}

}  // namespace

TEST_F(MountTableTest, ReadsEntriesInOrderWithEscapesDecoded) {
    const std::vector<MountEntry> entries = MountTable::read(path());
    EXPECT_EQ(mountPoints(entries),
              (QStringList{"/proc", "/", "/media/u/A001 CARD", "/media/u/CARD", "/media/u/CARD2",
                           "/media/u/CARD/nested", kOddName, "/mnt/net", "/media/u/RAM",
                           "/media/u/SHARE", "/media/u/GONE", "/media/u/CARD"}));
    ASSERT_EQ(entries.size(), 12U);

    const MountEntry& card = entries[2];
    EXPECT_EQ(card.source, QStringLiteral("/dev/loop0"));
    EXPECT_EQ(card.fsType, QStringLiteral("fuseblk"));
    EXPECT_TRUE(card.options.contains(QStringLiteral("allow_other")));
    EXPECT_TRUE(card.options.contains(QStringLiteral("nosuid")));
    EXPECT_FALSE(card.readOnly);
    // Read-only at the mount or at the superblock both count.
    EXPECT_TRUE(entries[3].readOnly);
    EXPECT_TRUE(entries[4].readOnly);
    EXPECT_EQ(entries[7].source, QStringLiteral("server:/export"));

    // A table that can't be read is empty, not an error thrown at the caller.
    EXPECT_TRUE(MountTable::read(path() + QStringLiteral(".missing")).empty());
    // The machine's own table parses and holds the root.
    const std::vector<MountEntry> live = MountTable::read();
    EXPECT_TRUE(std::any_of(live.begin(), live.end(),
                            [](const MountEntry& e) { return e.mountPoint == u"/"; }));
}

TEST_F(MountTableTest, LocalVolumesAreBlockDevicesWithoutPseudoOrNetworkFileSystems) {
    EXPECT_EQ(mountPoints(volumes()),
              (QStringList{"/", "/media/u/A001 CARD", "/media/u/CARD", "/media/u/CARD2",
                           "/media/u/CARD/nested", kOddName, "/media/u/CARD"}));

    EXPECT_FALSE(MountTable::isBlockDevice(QStringLiteral("/dev/null")));  // a character device
    EXPECT_FALSE(MountTable::isBlockDevice(QStringLiteral("/dev")));
    EXPECT_FALSE(MountTable::isBlockDevice(QStringLiteral("tmpfs")));
}

TEST_F(MountTableTest, TopmostEntryAtAMountPoint) {
    const std::vector<MountEntry> entries = MountTable::read(path());
    const auto sourceAt = [&entries](const QString& mountPoint) {
        const auto entry = MountTable::entryForMountPoint(entries, mountPoint);
        return entry ? entry->source : QStringLiteral("none");
    };
    EXPECT_EQ(sourceAt("/media/u/CARD"), u"/dev/sdf1");
    EXPECT_EQ(sourceAt("/media/u/./CARD/"), u"/dev/sdf1");
    EXPECT_EQ(sourceAt(kOddName), u"/dev/sde1");
    EXPECT_EQ(sourceAt("/media/u"), u"none");
    EXPECT_EQ(sourceAt("/media/u/CAR"), u"none");
    EXPECT_EQ(sourceAt(QString()), u"none");
}

TEST_F(MountTableTest, VolumeOfAPathIsTheLongestWholeFolderPrefix) {
    const std::vector<MountEntry> all = volumes();
    const auto volumeOf = [&all](const QString& path) {
        return MountTable::volumeMountPointForPath(all, path);
    };
    EXPECT_EQ(volumeOf("/media/u/CARD/nested/clip.mov"), u"/media/u/CARD/nested");
    EXPECT_EQ(volumeOf("/media/u/CARD/nestedX/clip.mov"), u"/media/u/CARD");
    EXPECT_EQ(volumeOf("/media/u/CARD/x/../nested/./a"), u"/media/u/CARD/nested");
    EXPECT_EQ(volumeOf(kOddName + QStringLiteral("/a")), kOddName);
    // "/" is never the answer, nor a volume that isn't local.
    EXPECT_EQ(volumeOf("/home/u/clip.mov"), QString());
    EXPECT_EQ(volumeOf("/"), QString());
    EXPECT_EQ(volumeOf("/media/u/RAM/x"), QString());

    // A name that merely starts like a mount point is not inside it.
    const auto card = MountTable::entryForMountPoint(all, QStringLiteral("/media/u/CARD"));
    ASSERT_TRUE(card);
    EXPECT_EQ(MountTable::volumeMountPointForPath({*card}, QStringLiteral("/media/u/CARD2/DCIM")),
              QString());
}
