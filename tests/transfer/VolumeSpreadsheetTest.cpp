// The drive identifier a spreadsheet row gets: the disk's, else the volume's, else none.
#include <gtest/gtest.h>

#include <QTemporaryDir>

#include "FakeDiskInformation.h"
#include "QVVolume.h"
#include "SystemClock.h"
#include "VolumeSpreadsheet.h"

TEST(VolumeSpreadsheet, DriveIdentifier) {
    using Info = PropertyList::Dictionary;
    EXPECT_EQ(VolumeSpreadsheet::driveIdentifier(Info{{"DiskUUID", "D-1"}, {"VolumeUUID", "V"}}),
              "D-1");
    EXPECT_EQ(VolumeSpreadsheet::driveIdentifier(Info{{"DiskUUID", ""}, {"VolumeUUID", "V"}}), "V");
    EXPECT_EQ(VolumeSpreadsheet::driveIdentifier(Info{}), "");

    // The disk facts of the volume's path, none for a folder that is no mounted disk.
    QTemporaryDir dir;
    QVVolume volume(SystemClock::shared());
    volume.setPath(dir.path());
    FakeDiskInformation disks;
    EXPECT_TRUE(VolumeSpreadsheet::describe(volume, disks).driveIdentifier.isEmpty());
    disks.set(dir.path(), Info{{"VolumeUUID", "V"}});
    EXPECT_EQ(VolumeSpreadsheet::describe(volume, disks).driveIdentifier, "V");
}
