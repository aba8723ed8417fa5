#pragma once
// The mounted volumes a card could be on: local volumes under a media root, on a removable
// or hot-plugged disk, or on a loop device backed by an image file. The system disk never is.

#include <QString>
#include <QStringList>
#include <functional>
#include <vector>

#include "MountTable.h"

class RemovableMedia {
  public:
    /// What /sys says about the block device behind a mount.
    struct DeviceFacts {
        bool removable = false;   // the device or its disk has removable == 1
        bool fileBacked = false;  // a loop device with a backing file
        bool hotPlugged = false;  // reached through a USB bus
    };
    using FactsReader = std::function<DeviceFacts(const QString& device)>;

    /// Removable local volumes in mount-table order; never "/" or anything on its device.
    static std::vector<MountEntry> mounted();

    /// The same choice over given volumes; rootDevice is the source mounted at "/".
    static std::vector<MountEntry> removableAmong(const std::vector<MountEntry>& volumes,
                                                  const QString& rootDevice,
                                                  const QStringList& mediaRoots,
                                                  const FactsReader& facts);

    /// True when the entry is mounted below (not at) one of the media roots (each ending in
    /// "/"), or its device is removable, file-backed or hot-plugged.
    static bool isRemovable(const MountEntry& entry, const QStringList& mediaRoots,
                            const FactsReader& facts);

    /// Facts for a device node, looked up through /sys/dev/block; all false when unknown.
    static DeviceFacts factsForDevice(const QString& device);
    /// Facts read from the canonical /sys folder of a block device (or partition).
    static DeviceFacts factsAtSysPath(const QString& sysPath);
};
