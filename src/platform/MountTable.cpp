#include "MountTable.h"

#include <libmount/libmount.h>
#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <memory>

#include "QVLog.h"

namespace {

struct TableDeleter {
    void operator()(libmnt_table* table) const { mnt_unref_table(table); }
};
struct IteratorDeleter {
    void operator()(libmnt_iter* iterator) const { mnt_free_iter(iterator); }
};
using TablePtr = std::unique_ptr<libmnt_table, TableDeleter>;
using IteratorPtr = std::unique_ptr<libmnt_iter, IteratorDeleter>;

QString decodePath(const char* text) {
    return text != nullptr ? QFile::decodeName(text) : QString();
}

// A bad line is skipped rather than losing the whole table over it.
int skipBadLine(libmnt_table* /*table*/, const char* fileName, int line) {
    QVLog::appendLog(u"Mount table %@: unreadable line %@ skipped", QFile::decodeName(fileName),
                     line);
    return 1;
}

MountEntry entryFrom(libmnt_fs* fs) {
    MountEntry entry;
    entry.mountPoint = decodePath(mnt_fs_get_target(fs));
    entry.source = decodePath(mnt_fs_get_source(fs));
    entry.fsType = QString::fromUtf8(mnt_fs_get_fstype(fs));
    const char* options = mnt_fs_get_options(fs);
    entry.options = QString::fromUtf8(options);
    // The merged options hold both the mount's and the superblock's flags; either one
    // being "ro" makes the volume read-only.
    entry.readOnly =
        options != nullptr && mnt_optstr_get_option(options, "ro", nullptr, nullptr) == 0;
    return entry;
}

// Normalised absolute form, so "x/", "x/." and "x" compare equal.
QString cleanAbsolute(const QString& path) {
    if (path.isEmpty()) {
        return {};
    }
    return QDir::cleanPath(QFileInfo(path).absoluteFilePath());
}

}  // namespace

std::vector<MountEntry> MountTable::read(const QString& mountInfoPath) {
    std::vector<MountEntry> entries;
    const TablePtr table(mnt_new_table());
    const IteratorPtr iterator(mnt_new_iter(MNT_ITER_FORWARD));
    if (!table || !iterator) {
        QVLog::appendLog(u"Mount table: out of memory reading %@", mountInfoPath);
        return entries;
    }
    mnt_table_set_parser_errcb(table.get(), skipBadLine);
    const int status = mnt_table_parse_file(table.get(), QFile::encodeName(mountInfoPath));
    if (status != 0) {
        QVLog::appendLog(u"Mount table: cannot read %@ (%@)", mountInfoPath, status);
        return entries;
    }
    libmnt_fs* fs = nullptr;
    while (mnt_table_next_fs(table.get(), iterator.get(), &fs) == 0) {
        entries.push_back(entryFrom(fs));
    }
    return entries;
}

std::vector<MountEntry> MountTable::localVolumes(const QString& mountInfoPath) {
    return localVolumes(read(mountInfoPath), isBlockDevice);
}

std::vector<MountEntry> MountTable::localVolumes(const std::vector<MountEntry>& entries,
                                                 const DeviceTest& isBlockDevice) {
    std::vector<MountEntry> volumes;
    for (const MountEntry& entry : entries) {
        const QByteArray type = entry.fsType.toUtf8();
        if (mnt_fstype_is_pseudofs(type.constData()) != 0 ||
            mnt_fstype_is_netfs(type.constData()) != 0) {
            continue;
        }
        if (entry.source.startsWith(QStringLiteral("/dev/")) && isBlockDevice(entry.source)) {
            volumes.push_back(entry);
        }
    }
    return volumes;
}

std::optional<MountEntry> MountTable::entryForMountPoint(const QString& mountPoint) {
    const std::vector<MountEntry> entries = read();
    if (auto entry = entryForMountPoint(entries, mountPoint)) {
        return entry;
    }
    // The table holds resolved paths; a mount point reached through a symbolic link
    // is found by its real one.
    const QString canonical = QFileInfo(mountPoint).canonicalFilePath();
    if (canonical.isEmpty() || canonical == cleanAbsolute(mountPoint)) {
        return std::nullopt;
    }
    return entryForMountPoint(entries, canonical);
}

std::optional<MountEntry> MountTable::entryForMountPoint(const std::vector<MountEntry>& entries,
                                                         const QString& mountPoint) {
    const QString wanted = cleanAbsolute(mountPoint);
    if (wanted.isEmpty()) {
        return std::nullopt;
    }
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
        if (entry->mountPoint == wanted) {
            return *entry;
        }
    }
    return std::nullopt;
}

QString MountTable::volumeMountPointForPath(const QString& path) {
    return volumeMountPointForPath(localVolumes(), path);
}

QString MountTable::volumeMountPointForPath(const std::vector<MountEntry>& volumes,
                                            const QString& path) {
    const QString wanted = cleanAbsolute(path);
    QString best;
    for (const MountEntry& volume : volumes) {
        const QString& mountPoint = volume.mountPoint;
        if (mountPoint == QStringLiteral("/") || mountPoint.size() <= best.size()) {
            continue;
        }
        // "/media/u/CARD2" is not inside "/media/u/CARD": the prefix must end at a "/".
        const bool inside =
            wanted == mountPoint ||
            (wanted.startsWith(mountPoint) && wanted.at(mountPoint.size()) == QLatin1Char('/'));
        if (inside) {
            best = mountPoint;
        }
    }
    return best;
}

bool MountTable::isBlockDevice(const QString& source) {
    if (!source.startsWith(QStringLiteral("/dev/"))) {
        return false;
    }
    struct stat info {};
    return ::stat(QFile::encodeName(source).constData(), &info) == 0 && S_ISBLK(info.st_mode);
}
