#include "VolumeEraser.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <optional>

#include "DiskInformation.h"
#include "MountService.h"
#include "ProcessRunner.h"
#include "QVLog.h"
#include "UDisks2.h"

namespace {

constexpr int kFatLabelLength = 11;
constexpr int kExfatLabelLength = 15;
// mkfs.fat rejects these in a label, besides control and non-ASCII characters.
const QString kRefusedInLabel = QStringLiteral("*?.,;:/\\|+=<>[]\"");
const QString kExfat = QStringLiteral("exfat");
const QString kFat = QStringLiteral("vfat");
// mkfs writes little beyond the tables; mounting waits for the card to be read.
constexpr double kFormatTimeout = 600;
constexpr double kMountTimeout = 120;

bool fail(QString* error, const QString& message) {
    QVLog::appendLog(u"VolumeEraser: %@", message);
    if (error != nullptr) {
        *error = message;
    }
    return false;
}

// Only for the message: why mount could not read what was just made.
bool kernelReads(const QString& type) {
    QFile file(QStringLiteral("/proc/filesystems"));
    if (!file.open(QIODevice::ReadOnly)) {
        return false;
    }
    for (const QByteArray& line : file.readAll().split('\n')) {
        if (line.trimmed().endsWith(type.toLatin1())) {
            return true;
        }
    }
    return false;
}

}  // namespace

VolumeEraser::VolumeEraser(MountService& mounts, ProcessRunner& runner, DiskInformation& disks)
    : mounts_(mounts), runner_(runner), disks_(disks), ejector_(mounts, runner) {}

// The type as the device says it (a FUSE mount only says "fuseblk"), the label as the card
// has it.
bool VolumeEraser::identify(const MountEntry& entry, const QString& name, QString* type,
                            QString* label, QString* reason) const {
    const std::optional<PropertyList> info = disks_.forMountPoint(entry.mountPoint);
    *type = info ? (*info)["FilesystemType"].toString() : QString();
    if (type->isEmpty()) {
        *type = entry.fsType;
    }
    QString own = info ? (*info)["VolumeName"].toString() : QString();
    if (own.isEmpty()) {
        own = name;
    }
    if (*type == kExfat) {
        *label = exfatLabel(own);
        return true;
    }
    if (*type == kFat) {
        *label = fatLabel(own);
        return true;
    }
    *reason = QStringLiteral("%1 holds a %2 file system; only exFAT and FAT cards are erased")
                  .arg(entry.source, type->isEmpty() ? QStringLiteral("unknown") : *type);
    return false;
}

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

// True when mounted again, the way it was (a card read through FUSE goes back through FUSE);
// otherwise *error says why not.
bool VolumeEraser::mountAgain(const MountEntry& was, const QString& type, QString* error) const {
    const QString& device = was.source;
    const QString object = UDisks2::blockObject(device);
    if (!object.isEmpty() && !UDisks2::mount(object).isEmpty()) {
        return true;
    }
    if (!runner_.runsAsRoot()) {
        return fail(error, QStringLiteral("erased, but %1 could not be mounted again without "
                                          "udisks2")
                               .arg(device));
    }
    const bool fuse = was.fsType.startsWith(u"fuse") && type == kExfat;
    const QString program = fuse ? QStringLiteral("mount.exfat-fuse") : QStringLiteral("mount");
    const ProcessResult result = runner_.run(program, {device, was.mountPoint}, kMountTimeout);
    if (result.exitCode == 0) {
        return true;
    }
    if (!fuse && !kernelReads(type)) {
        return fail(error, QStringLiteral("erased, but the kernel has no %1 driver, so %2 "
                                          "could not be mounted again")
                               .arg(type, device));
    }
    return fail(error, QStringLiteral("erased, but mounting %1 again failed (status %2)")
                           .arg(device)
                           .arg(result.exitCode));
}

// As root mkfs writes the device; anyone else asks udisks2 (and through it polkit).
bool VolumeEraser::format(const QString& device, const QString& type, const QString& label,
                          QString* reason) const {
    if (!runner_.runsAsRoot()) {
        const QString object = UDisks2::blockObject(device);
        if (object.isEmpty()) {
            *reason =
                QStringLiteral("udisks2 is not available and only root may format %1").arg(device);
            return false;
        }
        return UDisks2::format(object, type, label, reason);
    }
    const bool exfat = type == kExfat;
    const QString program = exfat ? QStringLiteral("mkfs.exfat") : QStringLiteral("mkfs.fat");
    QStringList arguments;
    if (!exfat) {
        arguments << QStringLiteral("-F") << QStringLiteral("32");
    }
    if (!label.isEmpty()) {
        arguments << (exfat ? QStringLiteral("-L") : QStringLiteral("-n")) << label;
    }
    arguments << device;
    const ProcessResult result = runner_.run(program, arguments, kFormatTimeout);
    if (result.timedOut) {
        *reason = QStringLiteral("%1 on %2 did not finish within %3 s")
                      .arg(program, device)
                      .arg(kFormatTimeout);
        return false;
    }
    if (result.exitCode != 0) {
        *reason = QStringLiteral("%1 on %2 exited with status %3")
                      .arg(program, device)
                      .arg(result.exitCode);
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

QString VolumeEraser::exfatLabel(const QString& name) {
    QString label;
    for (qsizetype i = 0; i < name.size(); ++i) {
        const QChar c = name.at(i);
        const bool pair = c.isHighSurrogate() && i + 1 < name.size();
        if (label.size() + (pair ? 2 : 1) > kExfatLabelLength) {
            break;
        }
        if (c.category() == QChar::Other_Control || c.isLowSurrogate()) {
            continue;
        }
        label.append(c);
        if (pair) {
            label.append(name.at(++i));
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
    QString type;
    QString label;
    QString reason;
    if (!identify(*entry, name, &type, &label, &reason)) {
        return fail(error, reason);
    }
    QString unmounted;
    if (!ejector_.unmountVolume(cleaned, error, &unmounted)) {
        return false;
    }
    // Unmounted, the node could only be another device if the table changed under us.
    // Whatever fails from here on, the card is put back rather than left unmounted.
    MountEntry was = *entry;
    was.mountPoint = cleaned;
    if (unmounted != device) {
        was.source = unmounted;
        mountAgain(was, type, nullptr);
        return fail(error, QStringLiteral("%1 changed while unmounting").arg(cleaned));
    }
    if (!format(device, type, label, &reason)) {
        mountAgain(was, type, nullptr);
        return fail(error, reason);
    }
    QVLog::appendLog(u"VolumeEraser: erased %@ as %@ \"%@\"", device, type, label);
    mountAgain(was, type, error);
    return true;
}
