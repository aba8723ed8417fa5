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
#include "QVLocalPaths.h"
#include "QVLog.h"
#include "SystemError.h"
#include "SystemLog.h"
#include "ZipArchive.h"

namespace {

QByteArray encoded(const QString& path) {
    return QFile::encodeName(path);
}

bool lstatPath(const QString& path, struct stat* status) {
    return ::lstat(encoded(path).constData(), status) == 0;
}

bool anythingAt(const QString& path) {
    struct stat status {};
    return lstatPath(path, &status);
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
bool driveIsMounted(const QString& drive) {
    struct stat status {};
    if (::stat(encoded(drive).constData(), &status) != 0 || !S_ISDIR(status.st_mode))
        return false;
    const QString parent = parentOf(drive);
    if (QVLocalPaths::isConfiguredMediaRoot(parent + u'/'))
        return true;
    struct stat parentStatus {};
    if (::stat(encoded(parent).constData(), &parentStatus) == 0 &&
        status.st_dev != parentStatus.st_dev)
        return true;
    return MountTable::entryForMountPoint(drive).has_value();
}

bool isUnderMediaRoot(const QString& path) {
    const QStringList roots = QVLocalPaths::mediaRoots();
    return std::any_of(roots.begin(), roots.end(),
                       [&](const QString& root) { return path.startsWith(root); });
}

QStringList entriesOf(const QString& folder) {
    return QDir(folder).entryList(
        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
}

}  // namespace

// ---- Tests

bool QVFileManager::fileExistsAtPath(const QString& path) {
    struct stat status {};
    return !path.isEmpty() && ::stat(encoded(path).constData(), &status) == 0;
}

bool QVFileManager::isDirectoryAtPath(const QString& path) {
    struct stat status {};
    return !path.isEmpty() && ::stat(encoded(path).constData(), &status) == 0 &&
           S_ISDIR(status.st_mode);
}

bool QVFileManager::isPackageAtPath(const QString& path) {
    return isDirectoryAtPath(path) &&
           packageExtensions().contains(QFileInfo(path).suffix(), Qt::CaseInsensitive);
}

bool QVFileManager::isSymbolicLinkAtPath(const QString& path) {
    struct stat status {};
    return lstatPath(path, &status) && S_ISLNK(status.st_mode);
}

bool QVFileManager::isVolumeMountedForPath(const QString& path) {
    const QString drive = QVLocalPaths::mediaDriveForPath(path);
    return drive.isEmpty() || driveIsMounted(drive);
}

bool QVFileManager::isDriveMountedForPath(const QString& path) {
    const QString drive = QVLocalPaths::mediaDriveForPath(path);
    if (drive.isEmpty())
        return true;
    SystemLog::log(u"mountpoint: %@", drive);
    return driveIsMounted(drive);
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
    for (const QString& name : entriesOf(path)) {
        if (name == QLatin1String(".DS_Store") || name == QLatin1String("Icon\r"))
            continue;
        const QString entry = path + u'/' + name;
        struct stat status {};
        if (!lstatPath(entry, &status) || !S_ISDIR(status.st_mode))
            return false;
        if (!isFolderEmpty(entry))
            return false;
    }
    return true;
}

std::uint64_t QVFileManager::fileSize(const QString& path) {
    struct stat status {};
    if (!lstatPath(path, &status))
        return 0;
    if (!S_ISDIR(status.st_mode))
        return std::uint64_t(status.st_size);
    std::uint64_t total = 0;
    for (const QString& name : entriesOf(path))
        total += fileSize(path + u'/' + name);
    return total;
}

// ---- Changes

bool QVFileManager::trashFile(const QString& path, bool shouldAuth) {
    unlockFile(path);
    if (!anythingAt(path))
        return true;
    static_cast<void>(shouldAuth);         // administrator rights come with the privileged helper
    return FreedesktopTrash::trash(path);  // which logs why it failed
}

bool QVFileManager::removeFile(const QString& path, bool shouldAuth) {
    unlockFile(path);
    if (!anythingAt(path))
        return true;
    std::error_code error;
    std::filesystem::remove_all(encoded(path).constData(), error);
    if (!error)
        return true;
    QVLog::appendLog(u"Error removing file: %@. Authorizing...",
                     QString::fromStdString(error.message()));
    static_cast<void>(shouldAuth);  // administrator rights come with the privileged helper
    return false;
}

bool QVFileManager::createDirectory(const QString& path, bool shouldAuth) {
    if (!isDriveMountedForPath(path)) {
        SystemLog::log(u"Unable to create directory. Drive is not mounted.");
        return false;
    }
    std::error_code error;
    std::filesystem::create_directories(encoded(path).constData(), error);
    if (!error && isDirectoryAtPath(path))
        return true;
    if (!error)
        error = std::make_error_code(std::errc::file_exists);
    QVLog::appendLog(u"Error creating folder: %@. Authorizing...",
                     QString::fromStdString(error.message()));
    static_cast<void>(shouldAuth);
    return false;
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
    QString error;
    if (ItemCopier::copy(source, destination, &error))
        return true;
    QVLog::appendLog(u"Error copying file: %@. Authorizing...", error);
    static_cast<void>(shouldAuth);
    return false;
}

bool QVFileManager::moveFile(const QString& source, const QString& destination, bool shouldAuth) {
    if (anythingAt(destination))
        unlockFile(destination);
    unlockFile(parentOf(destination));
    QString error;
    bool moved = false;
    if (isCaseOnlyChange(source, destination)) {
        // On a case-insensitive disk the destination "exists" already: go through a free name.
        const QString temporary = uniqueFilename(destination);
        moved = moveItem(source, temporary, &error);
        if (moved && temporary != destination && !moveItem(temporary, destination, &error)) {
            // A case-sensitive disk holding both names: never leave the file renamed.
            QString ignored;
            moveItem(temporary, source, &ignored);
            moved = false;
        }
    } else {
        moved = moveItem(source, destination, &error);
    }
    if (moved)
        return true;
    QVLog::appendLog(u"Error moving file: %@.", error);
    if (shouldAuth)
        QVLog::appendLog(u"Authorizing...");
    return false;
}

void QVFileManager::trashDirectoryContents(const QString& path, bool shouldAuth) {
    for (const QString& name : entriesOf(path))
        trashFile(path + u'/' + name, shouldAuth);
}

namespace {

template <typename Matches>
QStringList trashMatching(const QString& folder, const Matches& matches) {
    QStringList trashed;
    for (const QString& name : entriesOf(folder)) {
        const QString entry = folder + u'/' + name;
        struct stat status {};
        if (!lstatPath(entry, &status))
            continue;
        if (S_ISDIR(status.st_mode)) {
            trashed += trashMatching(entry, matches);
            continue;
        }
        if (matches(name) && QVFileManager::trashFile(entry))
            trashed << entry;
    }
    return trashed;
}

}  // namespace

QStringList QVFileManager::trashFilesOfType(const QString& extension, const QString& folder) {
    const QString wanted = extension.toLower();
    return trashMatching(
        folder, [&](const QString& name) { return QFileInfo(name).suffix().toLower() == wanted; });
}

QStringList QVFileManager::trashFilesNamed(const QString& name, const QString& folder) {
    return trashMatching(folder, [&](const QString& entry) { return entry == name; });
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

bool QVFileManager::waitForState(Clock::time_point start, int timeout,
                                 const std::function<bool()>& holds) {
    const auto deadline = start + std::chrono::seconds(timeout);
    const bool onMainThread = MainThread::isMainThread();
    while (!holds()) {
        if (Clock::now() >= deadline)
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
    const auto start = Clock::now();
    return trashFile(path, true) && waitForState(start, timeout, [&] { return !anythingAt(path); });
}

bool QVFileManager::removeFile(const QString& path, int timeout) {
    const auto start = Clock::now();
    return removeFile(path, true) &&
           waitForState(start, timeout, [&] { return !anythingAt(path); });
}

bool QVFileManager::createDirectory(const QString& path, int timeout) {
    const auto start = Clock::now();
    return createDirectory(path, true) &&
           waitForState(start, timeout, [&] { return fileExistsAtPath(path); });
}

bool QVFileManager::copyFile(const QString& source, const QString& destination, int timeout) {
    const auto start = Clock::now();
    return copyFile(source, destination, true) &&
           waitForState(start, timeout, [&] { return anythingAt(destination); });
}

bool QVFileManager::moveFile(const QString& source, const QString& destination, int timeout) {
    const auto start = Clock::now();
    if (!moveFile(source, destination, true))
        return false;
    if (isCaseOnlyChange(source, destination)) {
        ::usleep(500);
        return true;
    }
    return waitForState(start, timeout, [&] { return !anythingAt(source); });
}

bool QVFileManager::copyContentsOfDirectory(const QString& path, const QString& destination,
                                            int timeout) {
    bool allCopied = true;
    for (const QString& name : entriesOf(path)) {
        const QString entry = path + u'/' + name;
        QVLog::fastAppendLog(u"File: %@", entry);
        allCopied = copyFile(entry, destination + u'/' + name, timeout) && allCopied;
    }
    return allCopied;
}

// ---- Archives

bool QVFileManager::compressFile(const QString& source, const QString& destinationFile,
                                 bool includeParent) {
    if (anythingAt(destinationFile))
        trashFile(destinationFile);
    ZipArchive::compress(source, destinationFile, includeParent);
    return anythingAt(destinationFile);
}

bool QVFileManager::decompressFile(const QString& archive, const QString& destinationFolder) {
    if (anythingAt(destinationFolder))
        trashFile(destinationFolder);
    ZipArchive::extract(archive, destinationFolder);
    return anythingAt(destinationFolder);
}

// ---- Moving

bool QVFileManager::isCaseOnlyChange(const QString& source, const QString& destination) {
    return source != destination && source.toLower() == destination.toLower();
}

bool QVFileManager::moveItem(const QString& source, const QString& destination, QString* error) {
    const QByteArray from = encoded(source);
    const QByteArray to = encoded(destination);
    if (::renameat2(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), RENAME_NOREPLACE) == 0)
        return true;
    int code = errno;
    if (code == EINVAL || code == ENOSYS) {
        // The file system can't refuse to replace by itself.
        if (anythingAt(destination) && !isCaseOnlyChange(source, destination)) {
            code = EEXIST;
        } else if (::rename(from.constData(), to.constData()) == 0) {
            return true;
        } else {
            code = errno;
        }
    }
    if (code == EXDEV) {
        if (!ItemCopier::copy(source, destination, error))
            return false;
        std::error_code removal;
        std::filesystem::remove_all(from.constData(), removal);
        if (!removal)
            return true;
        *error = QStringLiteral("%1: %2").arg(source, QString::fromStdString(removal.message()));
        return false;
    }
    *error = QStringLiteral("%1 -> %2: %3").arg(source, destination, errnoText(code));
    return false;
}
