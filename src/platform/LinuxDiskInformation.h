#pragma once
// Disk information read from this machine's mount table, libblkid and /sys (DiskInfo).
// Stateless; safe from any thread.

#include "DiskInformation.h"

class LinuxDiskInformation : public DiskInformation {
  public:
    std::optional<PropertyList> forMountPoint(const QString& mountPoint) const override;
};
