#include "LinuxMountService.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QObject>

#include "MountMonitor.h"
#include "RemovableMedia.h"

namespace {

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

BlockDeviceId idOf(dev_t number) {
    return BlockDeviceId{number, diskOf(number)};
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

}  // namespace

LinuxMountService::LinuxMountService() = default;

LinuxMountService::~LinuxMountService() = default;

std::vector<MountEntry> LinuxMountService::localVolumes() const {
    return MountTable::localVolumes();
}

std::optional<MountEntry> LinuxMountService::entryForMountPoint(const QString& mountPoint) const {
    return MountTable::entryForMountPoint(mountPoint);
}

QString LinuxMountService::volumeMountPointForPath(const QString& path) const {
    return MountTable::volumeMountPointForPath(path);
}

std::vector<MountEntry> LinuxMountService::removableVolumes() const {
    return RemovableMedia::mounted();
}

bool LinuxMountService::isRemovable(const MountEntry& entry) const {
    return RemovableMedia::isRemovable(entry);
}

bool LinuxMountService::isBlockDevice(const QString& source) const {
    return MountTable::isBlockDevice(source);
}

bool LinuxMountService::isMountedAt(const QString& mountPoint, const QString& device) const {
    for (const MountEntry& entry : MountTable::read()) {
        if (entry.mountPoint == mountPoint && entry.source == device) {
            return true;
        }
    }
    return false;
}

std::optional<BlockDeviceId> LinuxMountService::blockDeviceId(const QString& node) const {
    struct stat info {};
    if (::stat(QFile::encodeName(node).constData(), &info) != 0 || !S_ISBLK(info.st_mode)) {
        return std::nullopt;
    }
    return idOf(info.st_rdev);
}

std::vector<BlockDeviceId> LinuxMountService::devicesHoldingPath(const QString& path) const {
    std::vector<BlockDeviceId> devices;
    const QString existing = existingAncestor(path);
    QString mountPoint = volumeMountPointForPath(existing);
    if (mountPoint.isEmpty()) {
        mountPoint = QStringLiteral("/");
    }
    // FUSE mounts report a device of their own, so the mounted block device counts too.
    if (const std::optional<MountEntry> entry = entryForMountPoint(mountPoint)) {
        if (const std::optional<BlockDeviceId> device = blockDeviceId(entry->source)) {
            devices.push_back(*device);
        }
    }
    struct stat info {};
    if (::stat(QFile::encodeName(existing).constData(), &info) == 0) {
        devices.push_back(idOf(info.st_dev));
    }
    return devices;
}

// "/sys/class/block/NAME/loop/backing_file" exists only while a loop device is attached.
QString LinuxMountService::loopBackingFile(const QString& device) const {
    const QString name = QFileInfo(QFileInfo(device).canonicalFilePath()).fileName();
    QFile file(QStringLiteral("/sys/class/block/%1/loop/backing_file").arg(name));
    if (name.isEmpty() || !file.open(QIODevice::ReadOnly)) {
        return {};
    }
    return QFile::decodeName(file.readAll().trimmed());
}

void LinuxMountService::startWatching(Listener listener) {
    stopWatching();
    monitor_ = std::make_unique<MountMonitor>();
    QObject::connect(monitor_.get(), &MountMonitor::volumeDidMount,
                     [listener](const MountEntry& entry) { listener(entry, true); });
    QObject::connect(monitor_.get(), &MountMonitor::volumeDidUnmount,
                     [listener](const MountEntry& entry) { listener(entry, false); });
    monitor_->start();
}

void LinuxMountService::stopWatching() {
    if (monitor_) {
        monitor_->stop();
        monitor_.reset();
    }
}
