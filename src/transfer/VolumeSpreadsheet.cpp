#include "VolumeSpreadsheet.h"

#include "DiskInformation.h"
#include "QVVolume.h"

SpreadsheetVolume VolumeSpreadsheet::describe(const QVVolume& volume,
                                              const DiskInformation& disks) {
    SpreadsheetVolume described;
    described.name = volume.name();
    if (const auto info = disks.forMountPoint(volume.path()))
        described.driveIdentifier = driveIdentifier(*info);
    described.destinations = volume.destinations();
    described.metadata = volume.metadata();
    return described;
}

QString VolumeSpreadsheet::driveIdentifier(const PropertyList& diskInfo) {
    const QString disk = diskInfo[QStringLiteral("DiskUUID")].toString();
    return disk.isEmpty() ? diskInfo[QStringLiteral("VolumeUUID")].toString() : disk;
}
