#pragma once
// Unmount, eject and erase on this machine: VolumeEjector and VolumeEraser over the services
// it is given, which must outlive it. Holds no state of its own; blocks while it works.

#include "VolumeActions.h"
#include "VolumeEjector.h"
#include "VolumeEraser.h"

class LinuxVolumeActions : public VolumeActions {
  public:
    LinuxVolumeActions(MountService& mounts, ProcessRunner& runner, DiskInformation& disks);

    bool unmount(const QString& mountPoint, QString* error, QString* device = nullptr) override;
    bool unmountAndEject(const QString& mountPoint, QString* error) override;
    bool erase(const QString& mountPoint, const QString& name, const QStringList& protectedPaths,
               QString* error) override;

  private:
    VolumeEjector ejector_;
    VolumeEraser eraser_;
};
