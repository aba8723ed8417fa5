// The mount table: reading /proc/self/mountinfo with its escapes, which entries are local
// volumes, the topmost mount at a point, and the volume that holds a path.
#include <gtest/gtest.h>

#include <QTemporaryDir>

#include "MountTable.h"
#include "TestFiles.h"

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

const QString kOdd = "/media/u/line\nbreak\ttab\\back\"q'$(x)";

class MountTableTest : public testing::Test {
  protected:
    void SetUp() override { TestFiles::write(path(), kMountInfo); }
    QString path() const { return dir_.filePath("mountinfo"); }
    // Every device the table names is a block device except /dev/notblock.
    std::vector<MountEntry> volumes() const {
        return MountTable::localVolumes(MountTable::read(path()), [](const QString& source) {
            return source.startsWith("/dev/") && source != "/dev/notblock";
        });
    }
    static QStringList mountPoints(const std::vector<MountEntry>& entries) {
        QStringList points;
        for (const MountEntry& entry : entries)
            points << entry.mountPoint + (entry.readOnly ? " ro" : "");
        return points;
    }

  private:
    QTemporaryDir dir_;
};

}  // namespace

TEST_F(MountTableTest, ReadsEntriesInOrderWithEscapesDecodedAndKeepsLocalVolumes) {
    const std::vector<MountEntry> entries = MountTable::read(path());
    // Read-only at the mount or at the superblock both count.
    EXPECT_EQ(mountPoints(entries),
              (QStringList{"/proc", "/", "/media/u/A001 CARD", "/media/u/CARD ro",
                           "/media/u/CARD2 ro", "/media/u/CARD/nested", kOdd, "/mnt/net",
                           "/media/u/RAM", "/media/u/SHARE", "/media/u/GONE", "/media/u/CARD"}));
    ASSERT_EQ(entries.size(), 12U);
    EXPECT_EQ(entries[2].source + " " + entries[2].fsType, "/dev/loop0 fuseblk");
    EXPECT_TRUE(entries[2].options.contains("allow_other") &&
                entries[2].options.contains("nosuid"));
    EXPECT_EQ(entries[7].source, "server:/export");
    EXPECT_TRUE(MountTable::read(path() + ".missing").empty()) << "unreadable: empty, no throw";
    EXPECT_TRUE(MountTable::entryForMountPoint(MountTable::read(), "/")) << "the machine's own";
    // Block devices without pseudo or network file systems.
    EXPECT_EQ(mountPoints(volumes()),
              (QStringList{"/", "/media/u/A001 CARD", "/media/u/CARD ro", "/media/u/CARD2 ro",
                           "/media/u/CARD/nested", kOdd, "/media/u/CARD"}));
    for (const char* notBlock : {"/dev/null", "/dev", "tmpfs"})
        EXPECT_FALSE(MountTable::isBlockDevice(notBlock)) << notBlock;
}

TEST_F(MountTableTest, TheTopmostEntryAtAPointAndTheVolumeOfAPath) {
    const std::vector<MountEntry> entries = MountTable::read(path());
    for (const auto& [point, source] :
         std::vector<std::pair<QString, QString>>{{"/media/u/CARD", "/dev/sdf1"},
                                                  {"/media/u/./CARD/", "/dev/sdf1"},
                                                  {kOdd, "/dev/sde1"},
                                                  {"/media/u", ""},
                                                  {"/media/u/CAR", ""},
                                                  {"", ""}}) {
        const auto entry = MountTable::entryForMountPoint(entries, point);
        EXPECT_EQ(entry ? entry->source : QString(), source) << point.toStdString();
    }
    // The longest whole-folder prefix among local volumes; never "/".
    const std::vector<MountEntry> all = volumes();
    for (const auto& [path, volume] : std::vector<std::pair<QString, QString>>{
             {"/media/u/CARD/nested/clip.mov", "/media/u/CARD/nested"},
             {"/media/u/CARD/nestedX/clip.mov", "/media/u/CARD"},
             {"/media/u/CARD/x/../nested/./a", "/media/u/CARD/nested"},
             {kOdd + "/a", kOdd},
             {"/media/u/CARD2/DCIM", "/media/u/CARD2"},
             {"/home/u/clip.mov", ""},
             {"/", ""},
             {"/media/u/RAM/x", ""}}) {
        EXPECT_EQ(MountTable::volumeMountPointForPath(all, path), volume) << path.toStdString();
    }
    // A name that merely starts like a mount point is not inside it.
    const auto card = MountTable::entryForMountPoint(all, "/media/u/CARD");
    ASSERT_TRUE(card);
    EXPECT_EQ(MountTable::volumeMountPointForPath({*card}, "/media/u/CARD2/DCIM"), QString());
}
