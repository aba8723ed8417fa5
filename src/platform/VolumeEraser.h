#pragma once
// Erases a removable card in its own format: unmount, make a new file system of the card's
// type (exFAT or FAT) with the card's label (mkfs as root, else udisks2), mount it again so it
// comes back to the list. Refuses anything that is not a removable card, any other file
// system, and the device of "/" or of any path that must be kept (the destinations).
// Holds no state of its own; safe from any thread its services are safe from. Blocks.

#include <QString>
#include <QStringList>

#include "VolumeEjector.h"

class DiskInformation;
struct BlockDeviceId;
struct MountEntry;

class VolumeEraser {
  public:
    VolumeEraser(MountService& mounts, ProcessRunner& runner, DiskInformation& disks);

    /// Reformats the card mounted at mountPoint in its own file system type, labelled as it
    /// was (name when the card's label can't be read). True when formatting succeeded; then
    /// *error is empty, or says the card could not be mounted again. False with the reason in
    /// *error when it refuses or formatting fails; a card that was unmounted by then is
    /// mounted again.
    bool eraseVolume(const QString& mountPoint, const QString& name,
                     const QStringList& protectedPaths, QString* error = nullptr) const;

    /// name upper-cased, without the characters FAT labels can't hold, cut to 11.
    static QString fatLabel(const QString& name);
    /// name without control characters, cut to the 15 UTF-16 units an exFAT label holds.
    static QString exfatLabel(const QString& name);

  private:
    /// What the card at entry is and is called; false with *reason for a type not erased here.
    bool identify(const MountEntry& entry, const QString& name, QString* type, QString* label,
                  QString* reason) const;
    QString protectedPathOn(const BlockDeviceId& card, const QStringList& protectedPaths) const;
    bool format(const QString& device, const QString& type, const QString& label,
                QString* reason) const;
    bool mountAgain(const MountEntry& was, const QString& type, QString* error) const;

    MountService& mounts_;
    ProcessRunner& runner_;
    DiskInformation& disks_;
    VolumeEjector ejector_;
};
