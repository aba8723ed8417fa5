#include "VolumeEraser.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <optional>

#include "LinuxMountService.h"
#include "PosixProcessRunner.h"
#include "QVLog.h"
#include "UDisks2.h"

namespace {

constexpr int kFatLabelLength = 11;
// mkfs.fat rejects these in a label, besides control and non-ASCII characters.
const QString kRefusedInLabel = QStringLiteral("*?.,;:/\\|+=<>[]\"");
// mkfs.fat writes little beyond the tables; mounting waits for the card to be read.
constexpr double kFormatTimeout = 600;
constexpr double kMountTimeout = 120;

bool fail(QString* error, const QString& message) {
    QVLog::appendLog(u"VolumeEraser: %@", message);
    if (error != nullptr) {
        *error = message;
    }
    return false;
}

bool hasFatDriver() {
    QFile file(QStringLiteral("/proc/filesystems"));
    if (!file.open(QIODevice::ReadOnly)) {
        return false;
    }
    for (const QByteArray& line : file.readAll().split('\n')) {
        if (line.trimmed().endsWith("vfat")) {
            return true;
        }
    }
    return false;
}

}  // namespace

VolumeEraser::VolumeEraser(MountService& mounts, ProcessRunner& runner)
    : mounts_(mounts), runner_(runner), ejector_(mounts, runner) {}

// The first protected path (or "/") sharing the card's device or disk; empty when none.
QString VolumeEraser::protectedPathOn(const BlockDeviceId& card,
                                      const QStringList& protectedPaths) const {
    for (const QString& path : QStringList{QStringLiteral("/")} + protectedPaths) {
        for (const BlockDeviceId& device : mounts_.devicesHoldingPath(path)) {
            if (device.number == card.number || device.disk == card.disk) {
                return path;
            }
        }
    }
    return {};
}

// True when mounted again; otherwise *error says why not.
bool VolumeEraser::mountAgain(const QString& device, const QString& mountPoint,
                              QString* error) const {
    const QString object = UDisks2::blockObject(device);
    if (!object.isEmpty() && !UDisks2::mount(object).isEmpty()) {
        return true;
    }
    if (!runner_.runsAsRoot()) {
        return fail(error, QStringLiteral("erased, but %1 could not be mounted again without "
                                          "udisks2")
                               .arg(device));
    }
    const ProcessResult result =
        runner_.run(QStringLiteral("mount"), {device, mountPoint}, kMountTimeout);
    const int status = result.exitCode;
    if (status == 0) {
        return true;
    }
    if (!hasFatDriver()) {
        return fail(error, QStringLiteral("erased, but the kernel has no FAT driver, so %1 "
                                          "could not be mounted again")
                               .arg(device));
    }
    return fail(
        error,
        QStringLiteral("erased, but mounting %1 again failed (status %2)").arg(device).arg(status));
}

// As root mkfs.fat writes the device; anyone else asks udisks2 (and through it polkit).
bool VolumeEraser::formatAsFat(const QString& device, const QString& label, QString* reason) const {
    if (!runner_.runsAsRoot()) {
        const QString object = UDisks2::blockObject(device);
        if (object.isEmpty()) {
            *reason =
                QStringLiteral("udisks2 is not available and only root may format %1").arg(device);
            return false;
        }
        return UDisks2::format(object, QStringLiteral("vfat"), label, reason);
    }
    QStringList arguments{QStringLiteral("-F"), QStringLiteral("32")};
    if (!label.isEmpty()) {
        arguments << QStringLiteral("-n") << label;
    }
    arguments << device;
    const ProcessResult result = runner_.run(QStringLiteral("mkfs.fat"), arguments, kFormatTimeout);
    if (result.timedOut) {
        *reason = QStringLiteral("mkfs.fat on %1 did not finish within %2 s")
                      .arg(device)
                      .arg(kFormatTimeout);
        return false;
    }
    if (result.exitCode != 0) {
        *reason =
            QStringLiteral("mkfs.fat on %1 exited with status %2").arg(device).arg(result.exitCode);
        return false;
    }
    return true;
}

QString VolumeEraser::fatLabel(const QString& name) {
    QString label;
    for (const QChar c : name.toUpper()) {
        if (label.size() == kFatLabelLength) {
            break;
        }
        if (c.unicode() >= 0x20 && c.unicode() < 0x7f && !kRefusedInLabel.contains(c)) {
            label.append(c);
        }
    }
    return label;
}

bool VolumeEraser::eraseVolume(const QString& mountPoint, const QString& name,
                               const QStringList& protectedPaths, QString* error) const {
    if (error != nullptr) {
        error->clear();
    }
    const QString cleaned = QDir::cleanPath(QFileInfo(mountPoint).absoluteFilePath());
    const std::optional<MountEntry> entry = mounts_.entryForMountPoint(cleaned);
    const std::optional<BlockDeviceId> card =
        entry ? mounts_.blockDeviceId(entry->source) : std::nullopt;
    if (!card) {
        return fail(error,
                    QStringLiteral("%1 is not where a block device is mounted").arg(cleaned));
    }
    const QString device = entry->source;
    const QString kept = protectedPathOn(*card, protectedPaths);
    if (!kept.isEmpty()) {
        return fail(error, QStringLiteral("%1 holds %2, which must be kept").arg(device, kept));
    }
    if (!mounts_.isRemovable(*entry)) {
        return fail(error, QStringLiteral("%1 is not a removable card").arg(device));
    }
    QString unmounted;
    if (!ejector_.unmountVolume(cleaned, error, &unmounted)) {
        return false;
    }
    // Unmounted, the node could only be another device if the table changed under us.
    // Whatever fails from here on, the card is put back rather than left unmounted.
    if (unmounted != device) {
        mountAgain(unmounted, cleaned, nullptr);
        return fail(error, QStringLiteral("%1 changed while unmounting").arg(cleaned));
    }
    const QString label = fatLabel(name);
    QString reason;
    if (!formatAsFat(device, label, &reason)) {
        mountAgain(device, cleaned, nullptr);
        return fail(error, reason);
    }
    QVLog::appendLog(u"VolumeEraser: erased %@ as FAT32 \"%@\"", device, label);
    mountAgain(device, cleaned, error);
    return true;
}

bool VolumeEraser::eraseAsFat(const QString& mountPoint, const QString& name,
                              const QStringList& protectedPaths, QString* error) {
    LinuxMountService mounts;
    PosixProcessRunner runner;
    return VolumeEraser(mounts, runner).eraseVolume(mountPoint, name, protectedPaths, error);
}
