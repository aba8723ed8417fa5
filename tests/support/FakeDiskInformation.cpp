#include "FakeDiskInformation.h"

void FakeDiskInformation::set(const QString& mountPoint, const PropertyList& info) {
    const std::lock_guard lock(mutex_);
    infos_.insert(mountPoint, info);
}

void FakeDiskInformation::remove(const QString& mountPoint) {
    const std::lock_guard lock(mutex_);
    infos_.remove(mountPoint);
}

std::optional<PropertyList> FakeDiskInformation::forMountPoint(const QString& mountPoint) const {
    const std::lock_guard lock(mutex_);
    const auto found = infos_.constFind(mountPoint);
    return found == infos_.cend() ? std::nullopt : std::optional(*found);
}
