#include <gtest/gtest.h>

#include <QTemporaryDir>

#include "QVVolume.h"
#include "VolumeSpreadsheet.h"

TEST(VolumeSpreadsheet, RowValuesAndDriveIdentifier) {
    using Info = PropertyList::Dictionary;
    EXPECT_EQ(VolumeSpreadsheet::driveIdentifier(Info{{"DiskUUID", "D-1"}, {"VolumeUUID", "V"}}),
              "D-1");
    EXPECT_EQ(VolumeSpreadsheet::driveIdentifier(Info{{"DiskUUID", ""}, {"VolumeUUID", "V"}}), "V");
    EXPECT_EQ(VolumeSpreadsheet::driveIdentifier(Info{}), "");

    // A folder is no mounted disk: the volume's own values and no identifier.
    QTemporaryDir dir;
    QVVolume volume;
    volume.setName("CARD A");
    volume.setPath(dir.path());
    volume.setDestinations({"/A/x", "/B/x"});
    volume.setMetadata({{"QVMetaReel", "7"}});
    const SpreadsheetVolume row = VolumeSpreadsheet::describe(volume);
    EXPECT_EQ(row.name, "CARD A");
    EXPECT_EQ(row.destinations, QStringList({"/A/x", "/B/x"}));
    EXPECT_EQ(row.metadata, volume.metadata());
    EXPECT_TRUE(row.driveIdentifier.isEmpty());
}
