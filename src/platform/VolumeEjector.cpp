#include "VolumeEjector.h"

#include <QDir>
#include <QFileInfo>
#include <chrono>
#include <thread>

#include "MountService.h"
#include "ProcessRunner.h"
#include "QVLog.h"
#include "UDisks2.h"

namespace {

// As long as udisks2 is given: a card still being flushed can take a while to let go.
constexpr double kUnmountTimeout = 120;
constexpr double kDetachTimeout = 30;

bool fail(QString* error, const QString& message) {
    QVLog::appendLog(u"VolumeEjector: %@", message);
    if (error != nullptr) {
        *error = message;
    }
    return false;
}

}  // namespace

VolumeEjector::VolumeEjector(MountService& mounts, ProcessRunner& runner)
    : mounts_(mounts), runner_(runner) {}

std::optional<VolumeEjector::Target> VolumeEjector::resolve(const QString& mountPoint,
                                                            QString* error) const {
    const QString cleaned = QDir::cleanPath(QFileInfo(mountPoint).absoluteFilePath());
    const std::optional<MountEntry> entry = mounts_.entryForMountPoint(cleaned);
    if (!entry || !mounts_.isBlockDevice(entry->source)) {
        fail(error, QStringLiteral("%1 is not where a block device is mounted").arg(cleaned));
        return std::nullopt;
    }
    return Target{entry->mountPoint, entry->source, UDisks2::blockObject(entry->source),
                  mounts_.loopBackingFile(entry->source)};
}

// Empty once unmounted, else why not.
QString VolumeEjector::unmountWithTools(const Target& target) const {
    using namespace std::chrono_literals;
    const auto mounted = [&] { return mounts_.isMountedAt(target.mountPoint, target.device); };
    // A reader that has just closed its files may keep the mount busy for a moment.
    for (int attempt = 0; attempt < 5 && mounted(); ++attempt) {
        if (attempt > 0) {
            std::this_thread::sleep_for(200ms);
        }
        const ProcessResult result =
            runner_.run(QStringLiteral("umount"), {target.mountPoint}, kUnmountTimeout);
        // A umount that hangs (a dead device) would hang again; don't pile them up.
        if (result.timedOut && mounted()) {
            return QStringLiteral("umount %1 did not finish within %2 s, so it stays mounted")
                .arg(target.mountPoint)
                .arg(kUnmountTimeout);
        }
        if (result.exitCode == 0) {
            break;
        }
    }
    // A FUSE mount the kernel wouldn't let go of may still leave through its own tool.
    for (const QString& name : {QStringLiteral("fusermount"), QStringLiteral("fusermount3")}) {
        if (mounted()) {
            runner_.run(name, {QStringLiteral("-u"), target.mountPoint}, kUnmountTimeout);
        }
    }
    return mounted() ? QStringLiteral("%1 is busy and stays mounted").arg(target.mountPoint)
                     : QString();
}

bool VolumeEjector::unmountTarget(const Target& target, QString* error) const {
    QString reason;
    if (!target.object.isEmpty() && UDisks2::unmount(target.object, &reason) &&
        !mounts_.isMountedAt(target.mountPoint, target.device)) {
        return true;
    }
    if (!runner_.runsAsRoot()) {
        return fail(error, reason.isEmpty()
                               ? QStringLiteral("udisks2 is not available and only root may "
                                                "unmount %1")
                                     .arg(target.mountPoint)
                               : reason);
    }
    const QString stillMounted = unmountWithTools(target);
    if (!stillMounted.isEmpty()) {
        return fail(error, stillMounted);
    }
    return true;
}

// The kernel lets a busy loop device go once its last user (a FUSE daemon on its way
// out) closes it; wait for that a little.
bool VolumeEjector::waitUntilDetached(const QString& device) const {
    using namespace std::chrono_literals;
    for (int attempt = 0; attempt < 50 && !mounts_.loopBackingFile(device).isEmpty(); ++attempt) {
        std::this_thread::sleep_for(100ms);
    }
    return mounts_.loopBackingFile(device).isEmpty();
}

bool VolumeEjector::detachLoop(const Target& target, QString* error) const {
    // After unmounting, the node might already be another image's: check it still is ours.
    if (mounts_.loopBackingFile(target.device) != target.backing) {
        return true;
    }
    QString reason;
    if (!target.object.isEmpty() && UDisks2::deleteLoop(target.object, &reason) &&
        waitUntilDetached(target.device)) {
        return true;
    }
    if (!runner_.runsAsRoot()) {
        return fail(error, reason.isEmpty()
                               ? QStringLiteral("only root may detach %1").arg(target.device)
                               : reason);
    }
    if (mounts_.loopBackingFile(target.device) == target.backing) {
        runner_.run(QStringLiteral("losetup"), {QStringLiteral("-d"), target.device},
                    kDetachTimeout);
    }
    if (!waitUntilDetached(target.device)) {
        return fail(error, QStringLiteral("%1 stays attached").arg(target.device));
    }
    return true;
}

bool VolumeEjector::unmountVolume(const QString& mountPoint, QString* error,
                                  QString* device) const {
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

bool VolumeEjector::ejectVolume(const QString& mountPoint, QString* error) const {
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
