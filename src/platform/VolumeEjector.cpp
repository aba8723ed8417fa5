#include "VolumeEjector.h"

#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <chrono>
#include <exception>
#include <optional>
#include <thread>

#include "MountTable.h"
#include "QVLog.h"
#include "SystemTool.h"
#include "UDisks2.h"

namespace {

// The block device behind a mount point, and what the kernel says is behind a loop device.
struct Target {
    QString mountPoint;
    QString device;
    QString object;   // udisks object; empty when the daemon doesn't answer
    QString backing;  // backing file of a loop device; empty for other devices
};

bool fail(QString* error, const QString& message) {
    QVLog::appendLog(u"VolumeEjector: %@", message);
    if (error != nullptr) {
        *error = message;
    }
    return false;
}

// "/sys/class/block/NAME/loop/backing_file" exists only while a loop device is attached.
QString loopBacking(const QString& device) {
    const QString name = QFileInfo(QFileInfo(device).canonicalFilePath()).fileName();
    QFile file(QStringLiteral("/sys/class/block/%1/loop/backing_file").arg(name));
    if (name.isEmpty() || !file.open(QIODevice::ReadOnly)) {
        return {};
    }
    return QFile::decodeName(file.readAll().trimmed());
}

bool isMountedAt(const QString& mountPoint, const QString& device) {
    for (const MountEntry& entry : MountTable::read()) {
        if (entry.mountPoint == mountPoint && entry.source == device) {
            return true;
        }
    }
    return false;
}

std::optional<Target> resolve(const QString& mountPoint, QString* error) {
    const QString cleaned = QDir::cleanPath(QFileInfo(mountPoint).absoluteFilePath());
    const std::optional<MountEntry> entry = MountTable::entryForMountPoint(cleaned);
    if (!entry || !MountTable::isBlockDevice(entry->source)) {
        fail(error, QStringLiteral("%1 is not where a block device is mounted").arg(cleaned));
        return std::nullopt;
    }
    Target target{entry->mountPoint, entry->source, UDisks2::blockObject(entry->source),
                  loopBacking(entry->source)};
    return target;
}

bool unmountWithTools(const Target& target) {
    using namespace std::chrono_literals;
    // A reader that has just closed its files may keep the mount busy for a moment.
    for (int attempt = 0; attempt < 5 && isMountedAt(target.mountPoint, target.device); ++attempt) {
        if (attempt > 0) {
            std::this_thread::sleep_for(200ms);
        }
        if (SystemTool::run(QStringLiteral("umount"), {target.mountPoint}) == 0) {
            break;
        }
    }
    // A FUSE mount the kernel wouldn't let go of may still leave through its own tool.
    for (const QString& name : {QStringLiteral("fusermount"), QStringLiteral("fusermount3")}) {
        if (isMountedAt(target.mountPoint, target.device)) {
            SystemTool::run(name, {QStringLiteral("-u"), target.mountPoint});
        }
    }
    return !isMountedAt(target.mountPoint, target.device);
}

bool unmountTarget(const Target& target, QString* error) {
    QString reason;
    if (!target.object.isEmpty() && UDisks2::unmount(target.object, &reason) &&
        !isMountedAt(target.mountPoint, target.device)) {
        return true;
    }
    if (::geteuid() != 0) {
        return fail(error, reason.isEmpty()
                               ? QStringLiteral("udisks2 is not available and only root may "
                                                "unmount %1")
                                     .arg(target.mountPoint)
                               : reason);
    }
    if (!unmountWithTools(target)) {
        return fail(error, QStringLiteral("%1 is busy and stays mounted").arg(target.mountPoint));
    }
    return true;
}

// The kernel lets a busy loop device go once its last user (a FUSE daemon on its way
// out) closes it; wait for that a little.
bool waitUntilDetached(const QString& device) {
    using namespace std::chrono_literals;
    for (int attempt = 0; attempt < 50 && !loopBacking(device).isEmpty(); ++attempt) {
        std::this_thread::sleep_for(100ms);
    }
    return loopBacking(device).isEmpty();
}

bool detachLoop(const Target& target, QString* error) {
    // After unmounting, the node might already be another image's: check it still is ours.
    if (loopBacking(target.device) != target.backing) {
        return true;
    }
    QString reason;
    if (!target.object.isEmpty() && UDisks2::deleteLoop(target.object, &reason) &&
        waitUntilDetached(target.device)) {
        return true;
    }
    if (::geteuid() != 0) {
        return fail(error, reason.isEmpty()
                               ? QStringLiteral("only root may detach %1").arg(target.device)
                               : reason);
    }
    if (loopBacking(target.device) == target.backing) {
        SystemTool::run(QStringLiteral("losetup"), {QStringLiteral("-d"), target.device});
    }
    if (!waitUntilDetached(target.device)) {
        return fail(error, QStringLiteral("%1 stays attached").arg(target.device));
    }
    return true;
}

}  // namespace

bool VolumeEjector::unmount(const QString& mountPoint, QString* error, QString* device) {
    const std::optional<Target> target = resolve(mountPoint, error);
    if (!target || !unmountTarget(*target, error)) {
        return false;
    }
    if (device != nullptr) {
        *device = target->device;
    }
    QVLog::appendLog(u"VolumeEjector: unmounted %@ (%@)", target->mountPoint, target->device);
    return true;
}

bool VolumeEjector::unmountAndEject(const QString& mountPoint, QString* error) {
    const std::optional<Target> target = resolve(mountPoint, error);
    if (!target || !unmountTarget(*target, error)) {
        return false;
    }
    if (!target->backing.isEmpty()) {
        return detachLoop(*target, error);
    }
    // Powering off is a courtesy: the card is safe to pull once it is unmounted.
    QString reason;
    if (target->object.isEmpty() || !UDisks2::powerOffDrive(target->object, &reason)) {
        QVLog::appendLog(u"VolumeEjector: %@ unmounted but not powered off %@", target->device,
                         reason);
    }
    return true;
}
