#include "RemovableMedia.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <algorithm>

#include "QVLocalPaths.h"

namespace {

QString readTrimmed(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    return QString::fromUtf8(file.read(4096)).trimmed();
}

bool isUnderMediaRoot(const QString& mountPoint, const QStringList& mediaRoots) {
    // Clean first, so a root given with a trailing slash is not taken for a folder under it.
    const QString path = QDir::cleanPath(mountPoint) + QLatin1Char('/');
    return std::any_of(mediaRoots.begin(), mediaRoots.end(),
                       [&](const QString& root) { return path.startsWith(root) && path != root; });
}

// The source mounted at "/" (the topmost one); empty when "/" is not a device mount.
QString rootDeviceFromTable() {
    const std::optional<MountEntry> root = MountTable::entryForMountPoint(QStringLiteral("/"));
    return root ? root->source : QString();
}

bool isCard(const MountEntry& entry, const QString& rootDevice, const QStringList& mediaRoots,
            const RemovableMedia::FactsReader& facts) {
    // Bind mounts of the system disk show up under other names; none is a card.
    if (entry.mountPoint.isEmpty() || entry.mountPoint == QStringLiteral("/") ||
        (!rootDevice.isEmpty() && entry.source == rootDevice)) {
        return false;
    }
    if (isUnderMediaRoot(entry.mountPoint, mediaRoots)) {
        return true;
    }
    const RemovableMedia::DeviceFacts device = facts(entry.source);
    return device.removable || device.hotPlugged;
}

}  // namespace

std::vector<MountEntry> RemovableMedia::mounted() {
    return removableAmong(MountTable::localVolumes(), rootDeviceFromTable(),
                          QVLocalPaths::mediaRoots(), &RemovableMedia::factsForDevice);
}

bool RemovableMedia::isRemovable(const MountEntry& entry) {
    return isCard(entry, rootDeviceFromTable(), QVLocalPaths::mediaRoots(),
                  &RemovableMedia::factsForDevice);
}

std::vector<MountEntry> RemovableMedia::removableAmong(const std::vector<MountEntry>& volumes,
                                                       const QString& rootDevice,
                                                       const QStringList& mediaRoots,
                                                       const FactsReader& facts) {
    std::vector<MountEntry> found;
    for (const MountEntry& entry : volumes) {
        if (isCard(entry, rootDevice, mediaRoots, facts)) {
            found.push_back(entry);
        }
    }
    return found;
}

RemovableMedia::DeviceFacts RemovableMedia::factsForDevice(const QString& device) {
    struct stat info {};
    if (::stat(QFile::encodeName(device).constData(), &info) != 0 || !S_ISBLK(info.st_mode)) {
        return {};
    }
    const QString link =
        QStringLiteral("/sys/dev/block/%1:%2").arg(major(info.st_rdev)).arg(minor(info.st_rdev));
    const QString sysPath = QFileInfo(link).canonicalFilePath();
    return sysPath.isEmpty() ? DeviceFacts{} : factsAtSysPath(sysPath);
}

RemovableMedia::DeviceFacts RemovableMedia::factsAtSysPath(const QString& sysPath) {
    // A partition keeps its disk's attributes one folder up.
    const QString disk = QFileInfo::exists(sysPath + QStringLiteral("/partition"))
                             ? QFileInfo(sysPath).path()
                             : sysPath;
    DeviceFacts facts;
    facts.removable = readTrimmed(disk + QStringLiteral("/removable")) == QStringLiteral("1");
    facts.hotPlugged = disk.contains(QStringLiteral("/usb"));
    return facts;
}
