#pragma once
// The mount table of this machine (libmount), removable media by /sys and the media roots,
// and mount events from MountMonitor. Queries read afresh and are safe from any thread;
// watching belongs to the thread that calls startWatching.

#include <memory>

#include "MountService.h"

class MountMonitor;

class LinuxMountService : public MountService {
  public:
    LinuxMountService();
    ~LinuxMountService() override;
    LinuxMountService(const LinuxMountService&) = delete;
    LinuxMountService& operator=(const LinuxMountService&) = delete;

    std::vector<MountEntry> localVolumes() const override;
    std::optional<MountEntry> entryForMountPoint(const QString& mountPoint) const override;
    QString volumeMountPointForPath(const QString& path) const override;
    std::vector<MountEntry> removableVolumes() const override;
    bool isRemovable(const MountEntry& entry) const override;
    bool isBlockDevice(const QString& source) const override;
    bool isMountedAt(const QString& mountPoint, const QString& device) const override;
    std::optional<BlockDeviceId> blockDeviceId(const QString& node) const override;
    std::vector<BlockDeviceId> devicesHoldingPath(const QString& path) const override;
    QString loopBackingFile(const QString& device) const override;

    /// Replaces any earlier watch; the first snapshot is taken without events.
    void startWatching(Listener listener) override;
    void stopWatching() override;

  private:
    std::unique_ptr<MountMonitor> monitor_;  // owned by the watching thread
};
