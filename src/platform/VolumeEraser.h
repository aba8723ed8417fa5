#pragma once
// Erases a removable card as FAT32 ("MS-DOS"): unmount, format (mkfs.fat as root, else
// udisks2), mount again. Refuses anything that is not a removable card, and the device of
// "/" or of any path that must be kept (the destinations).
// Holds no state of its own; safe from any thread its services are safe from. Blocks.

#include <QString>
#include <QStringList>

#include "VolumeEjector.h"

struct BlockDeviceId;

class VolumeEraser {
  public:
    VolumeEraser(MountService& mounts, ProcessRunner& runner);

    /// Reformats the card mounted at mountPoint as FAT32 labelled fatLabel(name). True when
    /// formatting succeeded; then *error is empty, or says the card could not be mounted again.
    /// False with the reason in *error when it refuses or formatting fails; a card that was
    /// unmounted by then is mounted again.
    bool eraseVolume(const QString& mountPoint, const QString& name,
                     const QStringList& protectedPaths, QString* error = nullptr) const;

    /// The same on this machine's own services; for callers not yet given a VolumeActions.
    static bool eraseAsFat(const QString& mountPoint, const QString& name,
                           const QStringList& protectedPaths, QString* error = nullptr);

    /// name upper-cased, without the characters FAT labels can't hold, cut to 11.
    static QString fatLabel(const QString& name);

  private:
    QString protectedPathOn(const BlockDeviceId& card, const QStringList& protectedPaths) const;
    bool formatAsFat(const QString& device, const QString& label, QString* reason) const;
    bool mountAgain(const QString& device, const QString& mountPoint, QString* error) const;

    MountService& mounts_;
    ProcessRunner& runner_;
    VolumeEjector ejector_;
};
