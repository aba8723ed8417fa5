#pragma once
// The mount table, removable cards, block devices and mount events behind one interface, so
// discovery, eject and erase can be tested on a fake table. Queries are safe from any thread;
// startWatching and stopWatching belong to one thread that runs a Qt event loop.

#include <QString>
#include <QtGlobal>
#include <functional>
#include <optional>
#include <vector>

#include "MountTable.h"

/// A block device as the kernel numbers it, with the whole disk holding it (the same number
/// for a whole disk or a loop device).
struct BlockDeviceId {
    quint64 number = 0;
    quint64 disk = 0;
};

class MountService {
  public:
    virtual ~MountService() = default;

    virtual std::vector<MountEntry> localVolumes() const = 0;
    virtual std::optional<MountEntry> entryForMountPoint(const QString& mountPoint) const = 0;
    virtual QString volumeMountPointForPath(const QString& path) const = 0;
    virtual std::vector<MountEntry> removableVolumes() const = 0;  // RemovableMedia::mounted()
    virtual bool isRemovable(const MountEntry& entry) const = 0;
    virtual bool isBlockDevice(const QString& source) const = 0;

    /// True while any entry of the table (not only the topmost) mounts device at mountPoint.
    virtual bool isMountedAt(const QString& mountPoint, const QString& device) const = 0;
    /// The device number of a block device node and of its disk; nullopt for anything else.
    virtual std::optional<BlockDeviceId> blockDeviceId(const QString& node) const = 0;
    /// Every block device path may live on: the one mounted above it (or above the nearest
    /// existing folder, for a path not made yet) and the one its file system reports.
    virtual std::vector<BlockDeviceId> devicesHoldingPath(const QString& path) const = 0;
    /// The backing file of an attached loop device; empty for other devices.
    virtual QString loopBackingFile(const QString& device) const = 0;

    /// Mount events, delivered on the thread that called startWatching (it runs a Qt event loop).
    using Listener = std::function<void(const MountEntry& entry, bool mounted)>;
    virtual void startWatching(Listener listener) = 0;
    virtual void stopWatching() = 0;
};
