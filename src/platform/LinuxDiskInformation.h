#pragma once
// The disk-information dictionary of a mounted volume, read from the mount table, libblkid,
// /sys and the udev database; nothing is ever written to a device. Stateless; safe from any
// thread.

#include "DiskInformation.h"

class LinuxDiskInformation : public DiskInformation {
  public:
    /// A Dictionary with DeviceNode, VolumeUUID, DiskUUID (partition UUID, else the disk's
    /// serial), VolumeName, FilesystemType, TotalSize, FreeSpace, Removable (as
    /// RemovableMedia::isRemovable) and MountPoint; keys that can't be learnt are left out
    /// (the UUIDs need read access to the device). nullopt when mountPoint is not where a
    /// block device is mounted.
    std::optional<PropertyList> forMountPoint(const QString& mountPoint) const override;
};
