#pragma once
// Unmounts a card and ejects it: powers its drive off, or detaches it when it is a loop
// device. Through udisks2 when the daemon answers, else with umount and losetup as root.
// Only ever acts on the device the mount table shows at the given mount point.

#include <QString>

class VolumeEjector {
  public:
    /// Unmounts mountPoint, then detaches its loop device or powers its drive off. True
    /// when it is no longer mounted (and a loop device is detached); *error says why not.
    static bool unmountAndEject(const QString& mountPoint, QString* error = nullptr);

    /// Unmounts mountPoint only; its device stays attached and powered. On success
    /// *device (when given) is the block device that was mounted there.
    static bool unmount(const QString& mountPoint, QString* error = nullptr,
                        QString* device = nullptr);
};
