#pragma once
// The mount table and its changes, as the transfer logic needs them.

#include <QString>
#include <functional>
#include <optional>
#include <vector>

#include "MountTable.h"

class MountService {
  public:
    virtual ~MountService() = default;
    virtual std::vector<MountEntry> localVolumes() const = 0;
    virtual std::optional<MountEntry> entryForMountPoint(const QString& mountPoint) const = 0;
    virtual QString volumeMountPointForPath(const QString& path) const = 0;
    virtual std::vector<MountEntry> removableVolumes() const = 0;
    virtual bool isRemovable(const MountEntry& entry) const = 0;
    virtual bool isBlockDevice(const QString& source) const = 0;
    /// Mount events, delivered on the thread that called startWatching (it runs a Qt event loop).
    using Listener = std::function<void(const MountEntry& entry, bool mounted)>;
    virtual void startWatching(Listener listener) = 0;
    virtual void stopWatching() = 0;
};
