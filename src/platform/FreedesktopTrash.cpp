#include "FreedesktopTrash.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>

#include "QVLocalPaths.h"
#include "QVLog.h"
#include "UniqueFd.h"

namespace {

constexpr qsizetype kMaxNameBytes = 255;
constexpr qsizetype kMaxExtensionBytes = 32;
constexpr int kMaxCollisions = 10000;
const QByteArray kInfoSuffix = QByteArrayLiteral(".trashinfo");

// A trash (holding files/ and info/) and the top directory its Path= lines are relative
// to; the home trash has none and records absolute paths.
struct TrashDir {
    QByteArray root;
    QByteArray topdir;
};

struct Moved {
    int error = 0;
    QByteArray trashedPath;
};

bool lstatDirectory(const QByteArray& path, struct stat& info) {
    return lstat(path.constData(), &info) == 0 && S_ISDIR(info.st_mode);
}

// Creates the folder 0700 unless present; what is there must be a folder, not a link to one.
// In a top-directory trash it must also be ours, so nobody else can plant one for us.
bool ensureDirectory(const QByteArray& path, bool mustOwn) {
    if (mkdir(path.constData(), 0700) != 0 && errno != EEXIST) {
        return false;
    }
    struct stat info {};
    return lstatDirectory(path, info) && (!mustOwn || info.st_uid == geteuid());
}

bool prepareTrash(const QByteArray& root, bool mustOwn) {
    return ensureDirectory(root, mustOwn) && ensureDirectory(root + "/files", mustOwn) &&
           ensureDirectory(root + "/info", mustOwn);
}

// The top directory: the path is climbed until the device changes, which finds the mount
// point the path went through without reading the mount table. A btrfs subvolume stops the
// climb at its root, which suits, as renames don't cross subvolumes. A bind mount of the
// same file system is climbed past; its items then fail with EXDEV rather than go astray.
QByteArray topDirectoryOf(QByteArray folder, dev_t device) {
    while (folder != "/") {
        const qsizetype slash = folder.lastIndexOf('/');
        const QByteArray up = slash > 0 ? folder.left(slash) : QByteArrayLiteral("/");
        struct stat info {};
        if (stat(up.constData(), &info) != 0 || info.st_dev != device) {
            return folder;
        }
        folder = up;
    }
    return folder;
}

std::optional<TrashDir> homeTrash() {
    const QString root = QVLocalPaths::trashDirectory();
    QDir().mkpath(QFileInfo(root).path());
    const QByteArray native = QFile::encodeName(root);
    if (!prepareTrash(native, false)) {
        return std::nullopt;
    }
    return TrashDir{native, {}};
}

std::optional<TrashDir> topdirTrash(const QByteArray& folder, dev_t device) {
    const QByteArray topdir = topDirectoryOf(folder, device);
    const QByteArray base = topdir == "/" ? QByteArray() : topdir;
    const QByteArray uid = QByteArray::number(geteuid());
    const QByteArray shared = base + "/.Trash";
    struct stat info {};
    if (lstat(shared.constData(), &info) == 0) {
        // Only an administrator's sticky folder may be shared; anything else is skipped.
        const bool usable = S_ISDIR(info.st_mode) && (info.st_mode & S_ISVTX) != 0;
        if (usable && prepareTrash(shared + '/' + uid, true)) {
            return TrashDir{shared + '/' + uid, topdir};
        }
        QVLog::appendLog(u"Trash: %@ is not a usable shared trash, using a private one",
                         QFile::decodeName(shared));
    }
    const QByteArray own = base + "/.Trash-" + uid;
    if (prepareTrash(own, true)) {
        return TrashDir{own, topdir};
    }
    return std::nullopt;
}

// "name.ext", "name.2.ext", "name.3.ext"...; shortened so "NAME.trashinfo" still fits.
QByteArray candidateName(const QString& name, int attempt) {
    QString stem = name;
    QString extension;
    const qsizetype dot = name.lastIndexOf(u'.');
    if (dot > 0 && dot < name.size() - 1 &&
        QFile::encodeName(name.mid(dot)).size() <= kMaxExtensionBytes) {
        stem = name.left(dot);
        extension = name.mid(dot);
    }
    const QString counter = attempt > 1 ? QStringLiteral(".%1").arg(attempt) : QString();
    const qsizetype room =
        kMaxNameBytes - kInfoSuffix.size() - counter.size() - QFile::encodeName(extension).size();
    while (QFile::encodeName(stem).size() > room) {
        stem.chop(stem.size() > 1 && stem.back().isLowSurrogate() ? 2 : 1);
    }
    return QFile::encodeName(stem + counter + extension);
}

QByteArray trashInfo(const TrashDir& trash, const QByteArray& original) {
    QByteArray recorded = original;
    if (!trash.topdir.isEmpty()) {
        recorded = original.mid(trash.topdir == "/" ? 1 : trash.topdir.size() + 1);
    }
    const QString date =
        QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd'T'HH:mm:ss"));
    return "[Trash Info]\nPath=" + recorded.toPercentEncoding("/") +
           "\nDeletionDate=" + date.toLatin1() + '\n';
}

bool writeAll(int fd, const QByteArray& data) {
    qsizetype done = 0;
    while (done < data.size()) {
        const ssize_t written = write(fd, data.constData() + done, size_t(data.size() - done));
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        done += written;
    }
    return true;
}

// Never overwrites: a name taken meanwhile (or left in files/ without its info) is EEXIST.
int renameNoReplace(const QByteArray& from, const QByteArray& to) {
    if (renameat2(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), RENAME_NOREPLACE) == 0) {
        return 0;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return errno;
    }
    struct stat info {};
    if (lstat(to.constData(), &info) == 0) {
        return EEXIST;
    }
    return rename(from.constData(), to.constData()) == 0 ? 0 : errno;
}

// Reserves a name by creating its .trashinfo exclusively, then moves the item under it.
Moved moveInto(const TrashDir& trash, const QByteArray& source, const QString& name) {
    const QByteArray info = trashInfo(trash, source);
    for (int attempt = 1; attempt <= kMaxCollisions; ++attempt) {
        const QByteArray candidate = candidateName(name, attempt);
        const QByteArray infoPath = trash.root + "/info/" + candidate + kInfoSuffix;
        UniqueFd fd(
            open(infoPath.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!fd.valid() && errno == EEXIST) {
            continue;
        }
        if (!fd.valid()) {
            return {errno, {}};
        }
        if (!writeAll(fd.get(), info) || fd.close() != 0) {
            const int error = errno;
            unlink(infoPath.constData());
            return {error, {}};
        }
        const QByteArray filesPath = trash.root + "/files/" + candidate;
        const int error = renameNoReplace(source, filesPath);
        if (error == 0) {
            return {0, filesPath};
        }
        unlink(infoPath.constData());
        if (error != EEXIST) {
            return {error, {}};
        }
    }
    return {EEXIST, {}};
}

bool fail(const QString& path, const QString& reason) {
    QVLog::appendLog(u"Could not move %@ to the trash: %@", path, reason);
    return false;
}

}  // namespace

bool FreedesktopTrash::trash(const QString& path, QString* trashedPath) {
    const QString absolute = QDir::cleanPath(QDir::current().absoluteFilePath(path));
    const QFileInfo location(absolute);
    const QString name = location.fileName();
    if (path.isEmpty() || name.isEmpty() || name == QStringLiteral("..")) {
        return fail(path, QStringLiteral("not an item that can be trashed"));
    }
    struct stat item {};
    if (lstat(QFile::encodeName(absolute).constData(), &item) != 0) {
        return fail(path, qt_error_string(errno));
    }
    // Recorded through the real parent folder, so a top directory's relative path holds.
    const std::unique_ptr<char, decltype(&std::free)> parent(
        realpath(QFile::encodeName(location.path()).constData(), nullptr), &std::free);
    if (!parent) {
        return fail(path, qt_error_string(errno));
    }
    const QByteArray folder(parent.get());
    const QByteArray source =
        (folder == "/" ? QByteArray() : folder) + '/' + QFile::encodeName(name);

    // The home trash takes what shares its file system; EXDEV (a bind mount) moves on.
    Moved moved{EXDEV, {}};
    const std::optional<TrashDir> home = homeTrash();
    struct stat homeInfo {};
    if (home && stat(home->root.constData(), &homeInfo) == 0 && homeInfo.st_dev == item.st_dev) {
        moved = moveInto(*home, source, name);
    }
    if (moved.error == EXDEV) {
        const std::optional<TrashDir> top = topdirTrash(folder, item.st_dev);
        if (!top) {
            return fail(path, QStringLiteral("its file system has no usable trash"));
        }
        moved = moveInto(*top, source, name);
    }
    if (moved.error != 0) {
        return fail(path, qt_error_string(moved.error));
    }
    if (trashedPath != nullptr) {
        *trashedPath = QFile::decodeName(moved.trashedPath);
    }
    return true;
}
