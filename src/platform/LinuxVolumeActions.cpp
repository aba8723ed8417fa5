#include "LinuxVolumeActions.h"

LinuxVolumeActions::LinuxVolumeActions(MountService& mounts, ProcessRunner& runner,
                                       DiskInformation& disks)
    : ejector_(mounts, runner), eraser_(mounts, runner, disks) {}

bool LinuxVolumeActions::unmount(const QString& mountPoint, QString* error, QString* device) {
    return ejector_.unmountVolume(mountPoint, error, device);
}

bool LinuxVolumeActions::unmountAndEject(const QString& mountPoint, QString* error) {
    return ejector_.ejectVolume(mountPoint, error);
}

bool LinuxVolumeActions::erase(const QString& mountPoint, const QString& name,
                               const QStringList& protectedPaths, QString* error) {
    return eraser_.eraseVolume(mountPoint, name, protectedPaths, error);
}
