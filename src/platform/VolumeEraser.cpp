#include "VolumeEraser.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <exception>
#include <optional>
#include <set>

#include "MountTable.h"
#include "QVLog.h"
#include "RemovableMedia.h"
#include "SystemTool.h"
#include "UDisks2.h"
#include "VolumeEjector.h"

namespace {

constexpr int kFatLabelLength = 11;
// mkfs.fat rejects these in a label, besides control and non-ASCII characters.
const QString kRefusedInLabel = QStringLiteral("*?.,;:/\\|+=<>[]\"");

// A block device and the whole disk holding it (the same for a disk or loop device).
struct Device {
    dev_t number = 0;
    dev_t disk = 0;
};

bool fail(QString* error, const QString& message) {
    QVLog::appendLog(u"VolumeEraser: %@", message);
    if (error != nullptr) {
        *error = message;
    }
    return false;
}

// The disk is the parent in /sys when the device is a partition.
dev_t diskOf(dev_t number) {
    const QString sysPath =
        QFileInfo(QStringLiteral("/sys/dev/block/%1:%2").arg(major(number)).arg(minor(number)))
            .canonicalFilePath();
    if (sysPath.isEmpty() || !QFileInfo::exists(sysPath + QStringLiteral("/partition"))) {
        return number;
    }
    QFile file(QFileInfo(sysPath).path() + QStringLiteral("/dev"));
    if (!file.open(QIODevice::ReadOnly)) {
        return number;
    }
    const QList<QByteArray> parts = file.readAll().trimmed().split(':');
    if (parts.size() != 2) {
        return number;
    }
    return makedev(parts[0].toUInt(), parts[1].toUInt());
}

std::optional<Device> blockDevice(const QString& node) {
    struct stat info {};
    if (::stat(QFile::encodeName(node).constData(), &info) != 0 || !S_ISBLK(info.st_mode)) {
        return std::nullopt;
    }
    return Device{info.st_rdev, diskOf(info.st_rdev)};
}

// A destination need not exist yet; the folder that would hold it does.
QString existingAncestor(const QString& path) {
    QString current = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    while (!QFileInfo::exists(current) && current != QStringLiteral("/")) {
        current = QFileInfo(current).path();
    }
    const QString canonical = QFileInfo(current).canonicalFilePath();
    return canonical.isEmpty() ? current : canonical;
}

// Every device a path may live on: the block device mounted above it (FUSE mounts
// included) and the device its file system reports.
std::vector<Device> devicesHolding(const QString& path) {
    std::vector<Device> devices;
    const QString existing = existingAncestor(path);
    QString mountPoint = MountTable::volumeMountPointForPath(existing);
    if (mountPoint.isEmpty()) {
        mountPoint = QStringLiteral("/");
    }
    if (const std::optional<MountEntry> entry = MountTable::entryForMountPoint(mountPoint)) {
        if (const std::optional<Device> device = blockDevice(entry->source)) {
            devices.push_back(*device);
        }
    }
    struct stat info {};
    if (::stat(QFile::encodeName(existing).constData(), &info) == 0) {
        devices.push_back(Device{info.st_dev, diskOf(info.st_dev)});
    }
    return devices;
}

// The first protected path (or "/") sharing the card's device or disk; empty when none.
QString protectedPathOn(const Device& card, const QStringList& protectedPaths) {
    for (const QString& path : QStringList{QStringLiteral("/")} + protectedPaths) {
        for (const Device& device : devicesHolding(path)) {
            if (device.number == card.number || device.disk == card.disk) {
                return path;
            }
        }
    }
    return {};
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

// True when mounted again; otherwise *error says why not.
bool mountAgain(const QString& device, const QString& mountPoint, QString* error) {
    const QString object = UDisks2::blockObject(device);
    if (!object.isEmpty() && !UDisks2::mount(object).isEmpty()) {
        return true;
    }
    if (::geteuid() != 0) {
        return fail(error, QStringLiteral("erased, but %1 could not be mounted again without "
                                          "udisks2")
                               .arg(device));
    }
    const int status = SystemTool::run(QStringLiteral("mount"), {device, mountPoint});
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
bool formatAsFat(const QString& device, const QString& label, QString* reason) {
    if (::geteuid() != 0) {
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
    const int status = SystemTool::run(QStringLiteral("mkfs.fat"), arguments);
    if (status != 0) {
        *reason = QStringLiteral("mkfs.fat on %1 exited with status %2").arg(device).arg(status);
        return false;
    }
    return true;
}

}  // namespace

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

bool VolumeEraser::eraseAsFat(const QString& mountPoint, const QString& name,
                              const QStringList& protectedPaths, QString* error) {
    if (error != nullptr) {
        error->clear();
    }
    const QString cleaned = QDir::cleanPath(QFileInfo(mountPoint).absoluteFilePath());
    const std::optional<MountEntry> entry = MountTable::entryForMountPoint(cleaned);
    const std::optional<Device> card = entry ? blockDevice(entry->source) : std::optional<Device>();
    if (!card) {
        return fail(error,
                    QStringLiteral("%1 is not where a block device is mounted").arg(cleaned));
    }
    const QString device = entry->source;
    const QString kept = protectedPathOn(*card, protectedPaths);
    if (!kept.isEmpty()) {
        return fail(error, QStringLiteral("%1 holds %2, which must be kept").arg(device, kept));
    }
    if (!RemovableMedia::isRemovable(*entry)) {
        return fail(error, QStringLiteral("%1 is not a removable card").arg(device));
    }
    QString unmounted;
    if (!VolumeEjector::unmount(cleaned, error, &unmounted)) {
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
