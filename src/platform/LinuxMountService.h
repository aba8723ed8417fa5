#pragma once
// The mount table through libmount and /sys, and its changes through MountMonitor.

#include <memory>

#include "MountMonitor.h"
#include "MountService.h"

class LinuxMountService : public MountService {
  public:
    std::vector<MountEntry> localVolumes() const override { return MountTable::localVolumes(); }
    std::optional<MountEntry> entryForMountPoint(const QString& mountPoint) const override {
        return MountTable::entryForMountPoint(mountPoint);
    }
    QString volumeMountPointForPath(const QString& path) const override {
        return MountTable::volumeMountPointForPath(path);
    }
    std::vector<MountEntry> removableVolumes() const override;
    bool isRemovable(const MountEntry& entry) const override;
    bool isBlockDevice(const QString& source) const override {
        return MountTable::isBlockDevice(source);
    }
    void startWatching(Listener listener) override;
    void stopWatching() override;

  private:
    std::unique_ptr<MountMonitor> monitor_;
};
