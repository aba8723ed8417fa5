#pragma once
// A mount table held in memory: entries, which devices are block devices (and on which disk),
// which are removable, which loop devices are attached. mount() and unmount() change it and
// tell the listener at once, on the caller's thread. Safe from any thread.

#include <QHash>
#include <QSet>
#include <mutex>

#include "MountService.h"

class FakeMountService : public MountService {
  public:
    /// A table line; fsType "vfat" unless given.
    static MountEntry entry(const QString& mountPoint, const QString& source,
                            const QString& fsType = QStringLiteral("vfat"));

    /// node becomes a block device numbered number on disk (itself when 0).
    void addBlockDevice(const QString& node, quint64 number, quint64 disk = 0);
    /// Cards are told by their device, as /sys would.
    void setRemovable(const QString& device, bool removable = true);
    /// device becomes a loop device attached to file; an empty file detaches it.
    void setLoopBacking(const QString& device, const QString& file);

    /// Appends entry to the table and reports it mounted.
    void mount(const MountEntry& entry);
    /// Removes the topmost entry at mountPoint and reports it unmounted; false when none.
    bool unmount(const QString& mountPoint);
    bool isWatching() const;

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
    void startWatching(Listener listener) override;
    void stopWatching() override;

  private:
    Listener listener() const;

    mutable std::mutex mutex_;
    std::vector<MountEntry> entries_;             // guarded by mutex_
    QHash<QString, BlockDeviceId> blockDevices_;  // guarded by mutex_
    QSet<QString> removable_;                     // guarded by mutex_
    QHash<QString, QString> loopBacking_;         // guarded by mutex_
    Listener listener_;                           // guarded by mutex_
};
