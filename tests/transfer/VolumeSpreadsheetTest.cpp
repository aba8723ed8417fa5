// The drive identifier a spreadsheet row gets: the disk's, else the volume's, else none.
#include <gtest/gtest.h>

#include "VolumeSpreadsheet.h"

TEST(VolumeSpreadsheet, DriveIdentifier) {
    using Info = PropertyList::Dictionary;
    EXPECT_EQ(VolumeSpreadsheet::driveIdentifier(Info{{"DiskUUID", "D-1"}, {"VolumeUUID", "V"}}),
              "D-1");
    EXPECT_EQ(VolumeSpreadsheet::driveIdentifier(Info{{"DiskUUID", ""}, {"VolumeUUID", "V"}}), "V");
    EXPECT_EQ(VolumeSpreadsheet::driveIdentifier(Info{}), "");
}
