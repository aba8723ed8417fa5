#include "FakeMountService.h"

#include <algorithm>

MountEntry FakeMountService::entry(const QString& mountPoint, const QString& source,
                                   const QString& fsType) {
    MountEntry line;
    line.mountPoint = mountPoint;
    line.source = source;
    line.fsType = fsType;
    line.options = QStringLiteral("rw");
    return line;
}

void FakeMountService::addBlockDevice(const QString& node, quint64 number, quint64 disk) {
    const std::lock_guard lock(mutex_);
    blockDevices_.insert(node, BlockDeviceId{number, disk == 0 ? number : disk});
}

void FakeMountService::setRemovable(const QString& device, bool removable) {
    const std::lock_guard lock(mutex_);
    if (removable) {
        removable_.insert(device);
    } else {
        removable_.remove(device);
    }
}

void FakeMountService::setLoopBacking(const QString& device, const QString& file) {
    const std::lock_guard lock(mutex_);
    if (file.isEmpty()) {
        loopBacking_.remove(device);
    } else {
        loopBacking_.insert(device, file);
    }
}

FakeMountService::Listener FakeMountService::listener() const {
    const std::lock_guard lock(mutex_);
    return listener_;
}

void FakeMountService::mount(const MountEntry& entry) {
    {
        const std::lock_guard lock(mutex_);
        entries_.push_back(entry);
    }
    if (const Listener tell = listener()) {
        tell(entry, true);
    }
}

bool FakeMountService::unmount(const QString& mountPoint) {
    MountEntry removed;
    {
        const std::lock_guard lock(mutex_);
        const auto topmost =
            std::find_if(entries_.rbegin(), entries_.rend(),
                         [&](const MountEntry& entry) { return entry.mountPoint == mountPoint; });
        if (topmost == entries_.rend()) {
            return false;
        }
        removed = *topmost;
        entries_.erase(std::next(topmost).base());
    }
    if (const Listener tell = listener()) {
        tell(removed, false);
    }
    return true;
}

bool FakeMountService::isWatching() const {
    return static_cast<bool>(listener());
}

std::vector<MountEntry> FakeMountService::localVolumes() const {
    std::vector<MountEntry> entries;
    {
        const std::lock_guard lock(mutex_);
        entries = entries_;
    }
    return MountTable::localVolumes(
        entries, [this](const QString& source) { return isBlockDevice(source); });
}

std::optional<MountEntry> FakeMountService::entryForMountPoint(const QString& mountPoint) const {
    const std::lock_guard lock(mutex_);
    return MountTable::entryForMountPoint(entries_, mountPoint);
}

QString FakeMountService::volumeMountPointForPath(const QString& path) const {
    return MountTable::volumeMountPointForPath(localVolumes(), path);
}

std::vector<MountEntry> FakeMountService::removableVolumes() const {
    std::vector<MountEntry> removable;
    for (const MountEntry& volume : localVolumes()) {
        if (isRemovable(volume)) {
            removable.push_back(volume);
        }
    }
    return removable;
}

bool FakeMountService::isRemovable(const MountEntry& entry) const {
    const std::lock_guard lock(mutex_);
    return removable_.contains(entry.source);
}

bool FakeMountService::isBlockDevice(const QString& source) const {
    const std::lock_guard lock(mutex_);
    return blockDevices_.contains(source);
}

bool FakeMountService::isMountedAt(const QString& mountPoint, const QString& device) const {
    const std::lock_guard lock(mutex_);
    return std::any_of(entries_.begin(), entries_.end(), [&](const MountEntry& entry) {
        return entry.mountPoint == mountPoint && entry.source == device;
    });
}

std::optional<BlockDeviceId> FakeMountService::blockDeviceId(const QString& node) const {
    const std::lock_guard lock(mutex_);
    const auto found = blockDevices_.constFind(node);
    return found == blockDevices_.cend() ? std::nullopt : std::optional(*found);
}

std::vector<BlockDeviceId> FakeMountService::devicesHoldingPath(const QString& path) const {
    QString mountPoint = volumeMountPointForPath(path);
    if (mountPoint.isEmpty()) {
        mountPoint = QStringLiteral("/");
    }
    const std::optional<MountEntry> entry = entryForMountPoint(mountPoint);
    const std::optional<BlockDeviceId> device = entry ? blockDeviceId(entry->source) : std::nullopt;
    return device ? std::vector<BlockDeviceId>{*device} : std::vector<BlockDeviceId>{};
}

QString FakeMountService::loopBackingFile(const QString& device) const {
    const std::lock_guard lock(mutex_);
    return loopBacking_.value(device);
}

void FakeMountService::startWatching(Listener listener) {
    const std::lock_guard lock(mutex_);
    listener_ = std::move(listener);
}

void FakeMountService::stopWatching() {
    const std::lock_guard lock(mutex_);
    listener_ = nullptr;
}
