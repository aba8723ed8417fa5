#pragma once
// A mount table a test writes: entries, which of them are removable, which sources are block
// devices; mount() and unmount() change it and tell the listener at once, on the caller's
// thread. Safe from any thread.

#include <QSet>
#include <mutex>

#include "MountService.h"

class FakeMountService : public MountService {
  public:
    std::vector<MountEntry> localVolumes() const override;
    std::optional<MountEntry> entryForMountPoint(const QString& mountPoint) const override;
    QString volumeMountPointForPath(const QString& path) const override;
    std::vector<MountEntry> removableVolumes() const override;
    bool isRemovable(const MountEntry& entry) const override;
    bool isBlockDevice(const QString& source) const override;
    void startWatching(Listener listener) override;
    void stopWatching() override;

    /// Adds the entry (a removable card unless said otherwise) and tells the listener.
    void mount(const MountEntry& entry, bool removable = true);
    void unmount(const QString& mountPoint);
    void addBlockDevice(const QString& source);

  private:
    mutable std::mutex mutex_;
    std::vector<MountEntry> entries_;  // guarded by mutex_
    QSet<QString> removable_;          // guarded by mutex_: mount points
    QSet<QString> blockDevices_;       // guarded by mutex_
    Listener listener_;                // guarded by mutex_
};
