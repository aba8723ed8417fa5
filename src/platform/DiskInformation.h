#pragma once
// The disk-information dictionary of a mounted volume (see LinuxDiskInformation for its keys),
// behind an interface so callers can be tested without devices. Implementations are safe from any
// thread.

#include <QString>
#include <optional>

#include "PropertyList.h"

class DiskInformation {
  public:
    virtual ~DiskInformation() = default;

    /// nullopt when mountPoint is not where a block device is mounted.
    virtual std::optional<PropertyList> forMountPoint(const QString& mountPoint) const = 0;
};
