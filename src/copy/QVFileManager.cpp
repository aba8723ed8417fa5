// Tests and changes. Queries, waits, attributes and digests are in QVFileManagerQueries.cpp.
#include "QVFileManager.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QThread>
#include <QTimer>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "FreedesktopTrash.h"
#include "ImmutableFlag.h"
#include "ItemCopier.h"
#include "MainThread.h"
#include "MountTable.h"
#include "QVAuthorization.h"
#include "QVLocalPaths.h"
#include "QVLog.h"
#include "SystemError.h"
#include "SystemLog.h"
#include "ZipArchive.h"

namespace {

QByteArray encoded(const QString& path) {
    return QFile::encodeName(path);
}

bool lstatPath(FileLayer& files, const QString& path, struct stat* status) {
    return files.linkStatus(encoded(path), status) == 0;
}

bool anythingAt(FileLayer& files, const QString& path) {
    return files.exists(encoded(path));
}

QString errnoText(int code) {
    return SystemError::text(code);
}

QString parentOf(const QString& path) {
    return QFileInfo(path).path();
}

const QStringList& packageExtensions() {
    static const QStringList extensions = {
        QStringLiteral("app"),    QStringLiteral("bundle"),    QStringLiteral("framework"),
        QStringLiteral("plugin"), QStringLiteral("kext"),      QStringLiteral("rtfd"),
        QStringLiteral("pkg"),    QStringLiteral("fcpbundle"), QStringLiteral("photoslibrary"),
        QStringLiteral("logicx"),
    };
    return extensions;
}

// Media-root drives must be real mount points: a leftover empty folder there is the root disk.
// The mount table also knows bind mounts, which share their parent's device. Folders under
// configured roots stand in for drives.
bool driveIsMounted(FileLayer& files, const QString& drive) {
    struct stat status {};
    if (files.status(encoded(drive), &status) != 0 || !S_ISDIR(status.st_mode))
        return false;
    const QString parent = parentOf(drive);
    if (QVLocalPaths::isConfiguredMediaRoot(parent + u'/'))
        return true;
    struct stat parentStatus {};
    if (files.status(encoded(parent), &parentStatus) == 0 && status.st_dev != parentStatus.st_dev)
        return true;
    return MountTable::entryForMountPoint(drive).has_value();
}

bool isUnderMediaRoot(const QString& path) {
    const QStringList roots = QVLocalPaths::mediaRoots();
    return std::any_of(roots.begin(), roots.end(),
                       [&](const QString& root) { return path.startsWith(root); });
}

// Entry names in name order.
QStringList entriesOf(FileLayer& files, const QString& folder) {
    std::vector<FileLayer::Entry> entries;
    files.listFolder(encoded(folder), &entries);
    QStringList names;
    for (const FileLayer::Entry& entry : entries)
        names << QFile::decodeName(entry.name);
    names.sort();
    return names;
}

}  // namespace

// ---- Tests

bool QVFileManager::fileExistsAtPath(const QString& path) {
    struct stat status {};
    return !path.isEmpty() && files_.status(encoded(path), &status) == 0;
}

bool QVFileManager::isDirectoryAtPath(const QString& path) {
    struct stat status {};
    return !path.isEmpty() && files_.status(encoded(path), &status) == 0 && S_ISDIR(status.st_mode);
}

bool QVFileManager::isPackageAtPath(const QString& path) {
    return isDirectoryAtPath(path) &&
           packageExtensions().contains(QFileInfo(path).suffix(), Qt::CaseInsensitive);
}

bool QVFileManager::isSymbolicLinkAtPath(const QString& path) {
    struct stat status {};
    return lstatPath(files_, path, &status) && S_ISLNK(status.st_mode);
}

bool QVFileManager::isVolumeMountedForPath(const QString& path) {
    const QString drive = QVLocalPaths::mediaDriveForPath(path);
    return drive.isEmpty() || driveIsMounted(files_, drive);
}

bool QVFileManager::isDriveMountedForPath(const QString& path) {
    const QString drive = QVLocalPaths::mediaDriveForPath(path);
    if (drive.isEmpty())
        return true;
    SystemLog::log(u"mountpoint: %@", drive);
    return driveIsMounted(files_, drive);
}

QString QVFileManager::volumeMountPointForPath(const QString& path) {
    const QString mountPoint = MountTable::volumeMountPointForPath(path);
    if (!mountPoint.isEmpty())
        return mountPoint;
    if (isUnderMediaRoot(path))
        return {};
    return QStringLiteral("/");
}

bool QVFileManager::isFileLocked(const QString& path) {
    return ImmutableFlag::isSet(path).value_or(false);
}

bool QVFileManager::isFolderEmpty(const QString& path) {
    for (const QString& name : entriesOf(files_, path)) {
        if (name == QLatin1String(".DS_Store") || name == QLatin1String("Icon\r"))
            continue;
        const QString entry = path + u'/' + name;
        struct stat status {};
        if (!lstatPath(files_, entry, &status) || !S_ISDIR(status.st_mode))
            return false;
        if (!isFolderEmpty(entry))
            return false;
    }
    return true;
}

std::uint64_t QVFileManager::fileSize(const QString& path) {
    struct stat status {};
    if (!lstatPath(files_, path, &status))
        return 0;
    if (!S_ISDIR(status.st_mode))
        return std::uint64_t(status.st_size);
    std::uint64_t total = 0;
    for (const QString& name : entriesOf(files_, path))
        total += fileSize(path + u'/' + name);
    return total;
}

// ---- Changes

bool QVFileManager::trashFile(const QString& path, bool shouldAuth) {
    unlockFile(path);
    if (!anythingAt(files_, path))
        return true;
    if (FreedesktopTrash::trash(path))  // which logs why it failed
        return true;
    return shouldAuth && authorization_ != nullptr && authorization_->authTrashFile(path);
}

bool QVFileManager::removeFile(const QString& path, bool shouldAuth) {
    unlockFile(path);
    if (!anythingAt(files_, path))
        return true;
    files_.removeTree(encoded(path));
    if (!anythingAt(files_, path))
        return true;
    QVLog::appendLog(u"Error removing file: %@. Authorizing...", errnoText(errno));
    return shouldAuth && authorization_ != nullptr && authorization_->authRemoveFile(path);
}

bool QVFileManager::createDirectory(const QString& path, bool shouldAuth) {
    if (!isDriveMountedForPath(path)) {
        SystemLog::log(u"Unable to create directory. Drive is not mounted.");
        return false;
    }
    const QByteArray folder = encoded(QDir::cleanPath(path));
    int code = 0;
    if (files_.makeParents(folder) != 0 || (files_.makeFolder(folder) != 0 && errno != EEXIST))
        code = errno;
    if (code == 0 && isDirectoryAtPath(path))
        return true;
    QVLog::appendLog(u"Error creating folder: %@. Authorizing...",
                     errnoText(code == 0 ? EEXIST : code));
    return shouldAuth && authorization_ != nullptr && authorization_->authCreateDir(path);
}

bool QVFileManager::copyFile(const QString& source, const QString& destination, bool shouldAuth) {
    if (source.isEmpty()) {
        QVLog::appendLogAndPrint(u"Error copying file: source path is nil");
        return false;
    }
    if (destination.isEmpty()) {
        QVLog::appendLogAndPrint(u"Error copying file %@: destination path is nil", source);
        return false;
    }
    unlockFile(parentOf(destination));
    const Status copied = ItemCopier::copy(source, destination);
    if (copied.ok())
        return true;
    QVLog::appendLog(u"Error copying file: %@. Authorizing...", copied.message());
    return shouldAuth && authorization_ != nullptr &&
           authorization_->authCopyFile(source, destination);
}

bool QVFileManager::moveFile(const QString& source, const QString& destination, bool shouldAuth) {
    if (anythingAt(files_, destination))
        unlockFile(destination);
    unlockFile(parentOf(destination));
    Status moved;
    if (isCaseOnlyChange(source, destination)) {
        // On a case-insensitive disk the destination "exists" already: go through a free name.
        const QString temporary = uniqueFilename(destination);
        moved = moveItem(source, temporary);
        if (moved.ok() && temporary != destination) {
            moved = moveItem(temporary, destination);
            // A case-sensitive disk holding both names: never leave the file renamed. The way
            // back is the way it came; the failure told is the one that stopped the move.
            if (!moved.ok())
                moveItem(temporary, source);
        }
    } else {
        moved = moveItem(source, destination);
    }
    if (moved.ok())
        return true;
    QVLog::appendLog(u"Error moving file: %@.", moved.message());
    if (!shouldAuth)
        return false;
    QVLog::appendLog(u"Authorizing...");
    return authorization_ != nullptr && authorization_->authMoveFile(source, destination);
}

void QVFileManager::trashDirectoryContents(const QString& path, bool shouldAuth) {
    for (const QString& name : entriesOf(files_, path))
        trashFile(path + u'/' + name, shouldAuth);
}

namespace {

template <typename Matches>
QStringList trashMatching(QVFileManager& manager, FileLayer& files, const QString& folder,
                          const Matches& matches) {
    QStringList trashed;
    for (const QString& name : entriesOf(files, folder)) {
        const QString entry = folder + u'/' + name;
        struct stat status {};
        if (!lstatPath(files, entry, &status))
            continue;
        if (S_ISDIR(status.st_mode)) {
            trashed += trashMatching(manager, files, entry, matches);
            continue;
        }
        if (matches(name) && manager.trashFile(entry))
            trashed << entry;
    }
    return trashed;
}

}  // namespace

QStringList QVFileManager::trashFilesOfType(const QString& extension, const QString& folder) {
    const QString wanted = extension.toLower();
    return trashMatching(*this, files_, folder, [&](const QString& name) {
        return QFileInfo(name).suffix().toLower() == wanted;
    });
}

QStringList QVFileManager::trashFilesNamed(const QString& name, const QString& folder) {
    return trashMatching(*this, files_, folder,
                         [&](const QString& entry) { return entry == name; });
}

bool QVFileManager::removeFolderIfEmpty(const QString& path) {
    return isFolderEmpty(path) && removeFile(path);
}

QString QVFileManager::createDirectoryStructure(const QString& relativePath,
                                                const QString& destination) {
    const bool isFolder = isDirectoryAtPath(relativePath) && !isPackageAtPath(relativePath);
    const QString folderPart = isFolder ? relativePath : parentOf(relativePath);
    const QString joined = QDir::cleanPath(destination + u'/' + folderPart);
    if (!fileExistsAtPath(joined))
        createDirectory(joined);
    return joined;
}

// ---- Time-out forms

bool QVFileManager::waitForState(SteadyClock::time_point start, int timeout,
                                 const std::function<bool()>& holds) {
    const auto deadline = start + std::chrono::seconds(timeout);
    const bool onMainThread = MainThread::isMainThread();
    while (!holds()) {
        if (SteadyClock::now() >= deadline)
            return holds();
        if (onMainThread) {
            // Keep the interface alive, input included (an open sheet must be answerable),
            // waiting at most 10 ms per turn.
            QEventLoop loop;
            QTimer::singleShot(10, &loop, &QEventLoop::quit);
            loop.exec();
        } else {
            QThread::msleep(300);
        }
    }
    return true;
}

// The time-out counts from the start, so a slow operation leaves less time to wait.
bool QVFileManager::trashFile(const QString& path, int timeout) {
    const auto start = SteadyClock::now();
    return trashFile(path, true) &&
           waitForState(start, timeout, [&] { return !anythingAt(files_, path); });
}

bool QVFileManager::removeFile(const QString& path, int timeout) {
    const auto start = SteadyClock::now();
    return removeFile(path, true) &&
           waitForState(start, timeout, [&] { return !anythingAt(files_, path); });
}

bool QVFileManager::createDirectory(const QString& path, int timeout) {
    const auto start = SteadyClock::now();
    return createDirectory(path, true) &&
           waitForState(start, timeout, [&] { return fileExistsAtPath(path); });
}

bool QVFileManager::copyFile(const QString& source, const QString& destination, int timeout) {
    const auto start = SteadyClock::now();
    return copyFile(source, destination, true) &&
           waitForState(start, timeout, [&] { return anythingAt(files_, destination); });
}

bool QVFileManager::moveFile(const QString& source, const QString& destination, int timeout) {
    const auto start = SteadyClock::now();
    if (!moveFile(source, destination, true))
        return false;
    if (isCaseOnlyChange(source, destination)) {
        ::usleep(500);
        return true;
    }
    return waitForState(start, timeout, [&] { return !anythingAt(files_, source); });
}

bool QVFileManager::copyContentsOfDirectory(const QString& path, const QString& destination,
                                            int timeout) {
    bool allCopied = true;
    for (const QString& name : entriesOf(files_, path)) {
        const QString entry = path + u'/' + name;
        QVLog::fastAppendLog(u"File: %@", entry);
        allCopied = copyFile(entry, destination + u'/' + name, timeout) && allCopied;
    }
    return allCopied;
}

// ---- Archives

bool QVFileManager::compressFile(const QString& source, const QString& destinationFile,
                                 bool includeParent) {
    if (anythingAt(files_, destinationFile))
        trashFile(destinationFile);
    ZipArchive::compress(source, destinationFile, includeParent);
    return anythingAt(files_, destinationFile);
}

bool QVFileManager::decompressFile(const QString& archive, const QString& destinationFolder) {
    if (anythingAt(files_, destinationFolder))
        trashFile(destinationFolder);
    ZipArchive::extract(archive, destinationFolder);
    return anythingAt(files_, destinationFolder);
}

// ---- Moving

bool QVFileManager::isCaseOnlyChange(const QString& source, const QString& destination) {
    return source != destination && source.toLower() == destination.toLower();
}

Status QVFileManager::moveItem(const QString& source, const QString& destination) {
    const QByteArray from = encoded(source);
    const QByteArray to = encoded(destination);
    if (::renameat2(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), RENAME_NOREPLACE) == 0)
        return {};
    int code = errno;
    if (code == EINVAL || code == ENOSYS) {
        // The file system can't refuse to replace by itself.
        if (anythingAt(files_, destination) && !isCaseOnlyChange(source, destination)) {
            code = EEXIST;
        } else if (::rename(from.constData(), to.constData()) == 0) {
            return {};
        } else {
            code = errno;
        }
    }
    if (code == EXDEV) {
        if (Status copied = ItemCopier::copy(source, destination); !copied.ok())
            return copied;
        files_.removeTree(from);
        if (!files_.exists(from))
            return {};
        return Status::fromErrno(QStringLiteral("remove"), source, errno);
    }
    return Status::fromErrno(QStringLiteral("move ") + source + QStringLiteral(" to"), destination,
                             code);
}
