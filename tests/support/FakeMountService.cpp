#include "FakeMountService.h"

std::vector<MountEntry> FakeMountService::localVolumes() const {
    const std::lock_guard lock(mutex_);
    return entries_;
}

std::optional<MountEntry> FakeMountService::entryForMountPoint(const QString& mountPoint) const {
    return MountTable::entryForMountPoint(localVolumes(), mountPoint);
}

QString FakeMountService::volumeMountPointForPath(const QString& path) const {
    return MountTable::volumeMountPointForPath(localVolumes(), path);
}

std::vector<MountEntry> FakeMountService::removableVolumes() const {
    const std::lock_guard lock(mutex_);
    std::vector<MountEntry> removable;
    for (const MountEntry& entry : entries_) {
        if (removable_.contains(entry.mountPoint))
            removable.push_back(entry);
    }
    return removable;
}

bool FakeMountService::isRemovable(const MountEntry& entry) const {
    const std::lock_guard lock(mutex_);
    return removable_.contains(entry.mountPoint);
}

bool FakeMountService::isBlockDevice(const QString& source) const {
    const std::lock_guard lock(mutex_);
    return blockDevices_.contains(source);
}

void FakeMountService::startWatching(Listener listener) {
    const std::lock_guard lock(mutex_);
    listener_ = std::move(listener);
}

void FakeMountService::stopWatching() {
    const std::lock_guard lock(mutex_);
    listener_ = nullptr;
}

void FakeMountService::mount(const MountEntry& entry, bool removable) {
    Listener listener;
    {
        const std::lock_guard lock(mutex_);
        entries_.push_back(entry);
        if (removable)
            removable_.insert(entry.mountPoint);
        listener = listener_;
    }
    if (listener)
        listener(entry, true);
}

void FakeMountService::unmount(const QString& mountPoint) {
    Listener listener;
    std::optional<MountEntry> gone;
    {
        const std::lock_guard lock(mutex_);
        const auto found = std::find_if(entries_.begin(), entries_.end(), [&](const auto& entry) {
            return entry.mountPoint == mountPoint;
        });
        if (found == entries_.end())
            return;
        gone = *found;
        entries_.erase(found);
        removable_.remove(mountPoint);
        listener = listener_;
    }
    if (listener)
        listener(*gone, false);
}

void FakeMountService::addBlockDevice(const QString& source) {
    const std::lock_guard lock(mutex_);
    blockDevices_.insert(source);
}
