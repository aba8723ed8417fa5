#pragma once
// Unmounts a card and ejects it: powers its drive off, or detaches it when it is a loop
// device. Through udisks2 when the daemon answers, else with umount and losetup as root.
// Only ever acts on the device the mount table shows at the given mount point.
// Holds no state of its own; safe from any thread its services are safe from. Blocks.

#include <QString>
#include <optional>

class MountService;
class ProcessRunner;

class VolumeEjector {
  public:
    VolumeEjector(MountService& mounts, ProcessRunner& runner);

    /// Unmounts mountPoint, then detaches its loop device or powers its drive off. True
    /// when it is no longer mounted (and a loop device is detached); *error says why not.
    bool ejectVolume(const QString& mountPoint, QString* error = nullptr) const;

    /// Unmounts mountPoint only; its device stays attached and powered. On success
    /// *device (when given) is the block device that was mounted there.
    bool unmountVolume(const QString& mountPoint, QString* error = nullptr,
                       QString* device = nullptr) const;

  private:
    // The block device behind a mount point, and what the kernel says is behind a loop device.
    struct Target {
        QString mountPoint;
        QString device;
        QString object;   // udisks object; empty when the daemon doesn't answer
        QString backing;  // backing file of a loop device; empty for other devices
    };

    std::optional<Target> resolve(const QString& mountPoint, QString* error) const;
    bool unmountTarget(const Target& target, QString* error) const;
    QString unmountWithTools(const Target& target) const;
    bool detachLoop(const Target& target, QString* error) const;
    bool waitUntilDetached(const QString& device) const;

    MountService& mounts_;
    ProcessRunner& runner_;
};
