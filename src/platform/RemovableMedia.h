#pragma once
// The mounted volumes a card could be on: local volumes under a media root, or on a
// removable or hot-plugged disk. The system disk never is, and neither is an image file on
// a loop device mounted elsewhere (a snap package).

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
        bool hotPlugged = false;  // reached through a USB bus
    };
    using FactsReader = std::function<DeviceFacts(const QString& device)>;

    /// Removable local volumes in mount-table order; never "/" or anything on its device.
    static std::vector<MountEntry> mounted();

    /// The one test of whether a mount is a card, as mounted() applies it: reads the mount
    /// table (for the device of "/"), the media roots and /sys afresh.
    static bool isRemovable(const MountEntry& entry);

    /// The same choice over given volumes; rootDevice is the source mounted at "/".
    static std::vector<MountEntry> removableAmong(const std::vector<MountEntry>& volumes,
                                                  const QString& rootDevice,
                                                  const QStringList& mediaRoots,
                                                  const FactsReader& facts);

    /// Facts for a device node, looked up through /sys/dev/block; all false when unknown.
    static DeviceFacts factsForDevice(const QString& device);
    /// Facts read from the canonical /sys folder of a block device (or partition).
    static DeviceFacts factsAtSysPath(const QString& sysPath);
};
