#pragma once
// Unmount, eject and erase of cards behind an interface, so the controller's completion steps
// can be tested without devices. Implementations block while they work; call them from a
// worker thread, never the main one.

#include <QString>
#include <QStringList>

class VolumeActions {
  public:
    virtual ~VolumeActions() = default;

    /// Unmounts mountPoint only; on success *device (when given) is the device that was there.
    virtual bool unmount(const QString& mountPoint, QString* error, QString* device = nullptr) = 0;
    /// Unmounts mountPoint, then detaches its loop device or powers its drive off.
    virtual bool unmountAndEject(const QString& mountPoint, QString* error) = 0;
    /// Reformats the removable card at mountPoint in its own file system type and label (name
    /// when the label can't be read), then mounts it again; refuses the device of "/" or of any
    /// of protectedPaths.
    virtual bool erase(const QString& mountPoint, const QString& name,
                       const QStringList& protectedPaths, QString* error) = 0;
};
