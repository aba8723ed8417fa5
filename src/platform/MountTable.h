#pragma once
// The kernel's mount table read through libmount, and the question every card path needs
// answered: which local volume holds it.
//
// Class-level operations only; each reads the table afresh, so results are never stale.

#include <QString>
#include <functional>
#include <optional>
#include <vector>

/// One line of the mount table, with escapes (\040 and the like) already decoded.
struct MountEntry {
    QString mountPoint;
    QString source;
    QString fsType;
    QString options;
    bool readOnly = false;
};

class MountTable {
  public:
    /// Tells whether a mount source names a block device.
    using DeviceTest = std::function<bool(const QString& source)>;

    /// Every entry of the table in its order; empty (logged) when it can't be read.
    static std::vector<MountEntry> read(
        const QString& mountInfoPath = QStringLiteral("/proc/self/mountinfo"));

    /// Entries whose source is a block device ("/dev/..."), FUSE block mounts included,
    /// without pseudo and network file systems.
    static std::vector<MountEntry> localVolumes(
        const QString& mountInfoPath = QStringLiteral("/proc/self/mountinfo"));
    /// The same filter over given entries, with the block-device test supplied.
    static std::vector<MountEntry> localVolumes(const std::vector<MountEntry>& entries,
                                                const DeviceTest& isBlockDevice);

    /// The topmost (last) entry mounted exactly at mountPoint; nullopt when none.
    static std::optional<MountEntry> entryForMountPoint(const QString& mountPoint);
    static std::optional<MountEntry> entryForMountPoint(const std::vector<MountEntry>& entries,
                                                        const QString& mountPoint);

    /// The longest local-volume mount point other than "/" that is the path or a folder
    /// above it; empty when none.
    static QString volumeMountPointForPath(const QString& path);
    /// The same rule over given volumes.
    static QString volumeMountPointForPath(const std::vector<MountEntry>& volumes,
                                           const QString& path);

    /// True for an existing block device under /dev.
    static bool isBlockDevice(const QString& source);
};
