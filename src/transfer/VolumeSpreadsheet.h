#pragma once
// What the metadata sheet writes for a volume. The drive identifier is the disk's
// "DiskUUID" (the Linux counterpart of the drive's UUID), else its file system's
// "VolumeUUID", as the disk information of its mount point gives them.

#include "MetadataSpreadsheet.h"
#include "PropertyList.h"

class DiskInformation;
class QVVolume;

class VolumeSpreadsheet {
  public:
    /// The volume's name, destinations and metadata values, and the identifier of the disk
    /// mounted at its path (empty when nothing is mounted there).
    static SpreadsheetVolume describe(const QVVolume& volume, const DiskInformation& disks);
    /// "DiskUUID" of a disk-information dictionary, else "VolumeUUID", else empty.
    static QString driveIdentifier(const PropertyList& diskInfo);
};
