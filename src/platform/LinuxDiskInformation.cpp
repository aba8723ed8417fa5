#include "LinuxDiskInformation.h"

#include <blkid/blkid.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <cstring>
#include <memory>
#include <type_traits>

#include "MountTable.h"
#include "QVLog.h"
#include "RemovableMedia.h"

namespace {

struct ProbeDeleter {
    void operator()(blkid_probe probe) const { blkid_free_probe(probe); }
};
using ProbePtr = std::unique_ptr<std::remove_pointer_t<blkid_probe>, ProbeDeleter>;

// Where a block device sits in /sys: itself and, for a partition, the disk holding it.
struct BlockDevice {
    QString sysPath;
    QString diskSysPath;
    QString number;      // "major:minor" of the device
    QString diskNumber;  // "major:minor" of the whole disk
    bool isPartition = false;
};

// What libblkid reads from the device; empty strings for what it didn't find.
struct Probe {
    QString uuid;
    QString label;
    QString type;
    QString partitionUuid;
};

QString readTrimmed(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    return QString::fromUtf8(file.read(4096)).trimmed();
}

std::optional<BlockDevice> locate(const QString& node) {
    struct stat info {};
    if (::stat(QFile::encodeName(node).constData(), &info) != 0 || !S_ISBLK(info.st_mode)) {
        return std::nullopt;
    }
    BlockDevice device;
    device.number = QStringLiteral("%1:%2").arg(major(info.st_rdev)).arg(minor(info.st_rdev));
    device.sysPath =
        QFileInfo(QStringLiteral("/sys/dev/block/") + device.number).canonicalFilePath();
    if (device.sysPath.isEmpty()) {
        QVLog::appendLog(u"LinuxDiskInformation: no /sys entry for %@ (%@)", node, device.number);
        return std::nullopt;
    }
    device.isPartition = QFileInfo::exists(device.sysPath + QStringLiteral("/partition"));
    device.diskSysPath = device.isPartition ? QFileInfo(device.sysPath).path() : device.sysPath;
    device.diskNumber = readTrimmed(device.diskSysPath + QStringLiteral("/dev"));
    return device;
}

// One property ("E:KEY=value") from the udev database entry of a block device.
QString udevProperty(const QString& number, const QString& key) {
    QFile file(QStringLiteral("/run/udev/data/b") + number);
    if (number.isEmpty() || !file.open(QIODevice::ReadOnly)) {
        return {};
    }
    const QByteArray prefix = "E:" + key.toUtf8() + '=';
    while (!file.atEnd()) {
        const QByteArray line = file.readLine().trimmed();
        if (line.startsWith(prefix)) {
            return QString::fromUtf8(line.mid(prefix.size())).trimmed();
        }
    }
    return {};
}

QString lookup(blkid_probe probe, const char* name) {
    const char* value = nullptr;
    if (blkid_probe_lookup_value(probe, name, &value, nullptr) != 0 || value == nullptr) {
        return {};
    }
    return QString::fromUtf8(value);
}

// Reads only; the probe opens the device read-only and keeps no cache file.
std::optional<Probe> probe(const QString& node, bool isPartition) {
    const ProbePtr handle(blkid_new_probe_from_filename(QFile::encodeName(node).constData()));
    if (!handle) {
        QVLog::appendLog(u"LinuxDiskInformation: cannot probe %@: %@", node,
                         QString::fromLocal8Bit(std::strerror(errno)));
        return std::nullopt;
    }
    blkid_probe_enable_superblocks(handle.get(), 1);
    blkid_probe_set_superblocks_flags(handle.get(),
                                      BLKID_SUBLKS_LABEL | BLKID_SUBLKS_UUID | BLKID_SUBLKS_TYPE);
    // The partition chain is only wanted for the entry describing this partition.
    blkid_probe_enable_partitions(handle.get(), isPartition ? 1 : 0);
    if (isPartition) {
        blkid_probe_set_partitions_flags(handle.get(), BLKID_PARTS_ENTRY_DETAILS);
    }
    const int status = blkid_do_safeprobe(handle.get());
    if (status < 0) {
        QVLog::appendLog(u"LinuxDiskInformation: probing %@ failed (%@)", node, status);
        return std::nullopt;
    }
    Probe result;
    result.uuid = lookup(handle.get(), "UUID");
    result.label = lookup(handle.get(), "LABEL");
    result.type = lookup(handle.get(), "TYPE");
    result.partitionUuid = lookup(handle.get(), "PART_ENTRY_UUID");
    return result;
}

// Without read access to the device, udev may still have recorded what it found there.
Probe probeFromUdev(const BlockDevice& device) {
    Probe result;
    result.uuid = udevProperty(device.number, QStringLiteral("ID_FS_UUID"));
    result.type = udevProperty(device.number, QStringLiteral("ID_FS_TYPE"));
    return result;
}

QString diskSerial(const BlockDevice& device) {
    for (const QString& file : {QStringLiteral("/device/serial"), QStringLiteral("/serial")}) {
        const QString serial = readTrimmed(device.diskSysPath + file);
        if (!serial.isEmpty()) {
            return serial;
        }
    }
    return udevProperty(device.diskNumber, QStringLiteral("ID_SERIAL"));
}

QString diskUuid(const BlockDevice& device, const std::optional<Probe>& probed) {
    if (!device.isPartition) {
        return diskSerial(device);
    }
    if (probed && !probed->partitionUuid.isEmpty()) {
        return probed->partitionUuid;
    }
    const QString recorded = udevProperty(device.number, QStringLiteral("ID_PART_ENTRY_UUID"));
    // An MBR disk with a zero signature gives its partitions no UUID.
    return recorded.isEmpty() ? diskSerial(device) : recorded;
}

void addSizes(PropertyList::Dictionary& info, const QString& mountPoint) {
    struct statvfs sizes {};
    if (::statvfs(QFile::encodeName(mountPoint).constData(), &sizes) != 0) {
        QVLog::appendLog(u"LinuxDiskInformation: cannot read the sizes of %@: %@", mountPoint,
                         QString::fromLocal8Bit(std::strerror(errno)));
        return;
    }
    const auto unit = static_cast<qint64>(sizes.f_frsize);
    info[QStringLiteral("TotalSize")] = static_cast<qint64>(sizes.f_blocks) * unit;
    info[QStringLiteral("FreeSpace")] = static_cast<qint64>(sizes.f_bavail) * unit;
}

void addIfKnown(PropertyList::Dictionary& info, const QString& key, const QString& value) {
    if (!value.isEmpty()) {
        info[key] = value;
    }
}

}  // namespace

std::optional<PropertyList> LinuxDiskInformation::forMountPoint(const QString& mountPoint) const {
    const std::optional<MountEntry> entry = MountTable::entryForMountPoint(mountPoint);
    if (!entry || !MountTable::isBlockDevice(entry->source)) {
        return std::nullopt;
    }
    const std::optional<BlockDevice> device = locate(entry->source);
    if (!device) {
        return std::nullopt;
    }
    const std::optional<Probe> probed = probe(entry->source, device->isPartition);
    const Probe found = probed.value_or(probeFromUdev(*device));

    PropertyList::Dictionary info;
    info[QStringLiteral("DeviceNode")] = entry->source;
    info[QStringLiteral("MountPoint")] = entry->mountPoint;
    addIfKnown(info, QStringLiteral("VolumeUUID"), found.uuid);
    addIfKnown(info, QStringLiteral("DiskUUID"), diskUuid(*device, probed));
    info[QStringLiteral("VolumeName")] =
        found.label.isEmpty() ? QFileInfo(entry->mountPoint).fileName() : found.label;
    info[QStringLiteral("FilesystemType")] = found.type.isEmpty() ? entry->fsType : found.type;
    addSizes(info, entry->mountPoint);
    info[QStringLiteral("Removable")] = RemovableMedia::isRemovable(*entry);
    return PropertyList(std::move(info));
}
