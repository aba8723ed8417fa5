#include "LinuxDiskInformation.h"

#include "DiskInfo.h"

std::optional<PropertyList> LinuxDiskInformation::forMountPoint(const QString& mountPoint) const {
    return DiskInfo::forMountPoint(mountPoint);
}
