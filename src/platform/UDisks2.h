#pragma once
// The udisks2 daemon on the system bus, for the few calls that unmount, eject, format and
// mount cards. Every call gives up (logged, with a reason) when the daemon doesn't answer, so
// callers can fall back to the command-line tools.

#include <QString>

class UDisks2 {
  public:
    /// The daemon's object for the block device node (e.g. "/dev/sdb1"); empty when there
    /// is no system bus, no daemon, or it doesn't know the device.
    static QString blockObject(const QString& device);

    /// Filesystem.Unmount with no options.
    static bool unmount(const QString& blockObject, QString* error = nullptr);
    /// Filesystem.Mount with no options; the mount point the daemon chose, empty on failure.
    static QString mount(const QString& blockObject, QString* error = nullptr);
    /// Block.Format: a new, empty file system of type (e.g. "vfat") labelled label (none when
    /// empty) on the unmounted block.
    static bool format(const QString& blockObject, const QString& type, const QString& label,
                       QString* error = nullptr);
    /// True when the block is a loop device.
    static bool isLoop(const QString& blockObject);
    /// Loop.Delete: detaches the loop device.
    static bool deleteLoop(const QString& blockObject, QString* error = nullptr);
    /// Drive.PowerOff on the block's drive; false when it has none or it can't be powered off.
    static bool powerOffDrive(const QString& blockObject, QString* error = nullptr);
};
