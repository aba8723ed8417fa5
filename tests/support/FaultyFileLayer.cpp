#include "FaultyFileLayer.h"

#include <QFile>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>
#include <vector>

namespace {

// A copy growing under its hidden temporary name has the faults of the file it becomes.
QByteArray finalPathOf(const QByteArray& path) {
    static const QByteArray suffix = ".cardsweep-part";
    const qsizetype slash = path.lastIndexOf('/');
    if (!path.endsWith(suffix) || path.size() <= slash + 1 || path[slash + 1] != '.')
        return path;
    return path.left(slash + 1) + path.mid(slash + 2, path.size() - slash - 2 - suffix.size());
}

}  // namespace

int FaultyFileLayer::track(int fd, const QByteArray& path) {
    if (fd < 0)
        return fd;
    const std::lock_guard lock(mutex_);
    open_[fd] = finalPathOf(path);
    return fd;
}

bool FaultyFileLayer::gone(const QByteArray& path) const {
    const std::lock_guard lock(mutex_);
    const bool pulled = cardBytesLeft_ == 0 && path.startsWith(cardRoot_ + '/');
    if (!pulled && !faultsForPath(path).vanished)
        return false;
    errno = ENOENT;
    return true;
}

int FaultyFileLayer::openRead(const QByteArray& path) {
    if (gone(path))
        return -1;
    {
        const std::lock_guard lock(mutex_);
        if (faultsForPath(path).openFails) {
            errno = EACCES;
            return -1;
        }
    }
    return track(PosixFileLayer::openRead(path), path);
}

void FaultyFileLayer::failCreationsNamed(const QByteArray& text) {
    const std::lock_guard lock(mutex_);
    refusedName_ = text;
}

void FaultyFileLayer::refuseLinksUnder(const QString& folder) {
    const std::lock_guard lock(mutex_);
    linklessFolder_ = QFile::encodeName(folder) + '/';
}

void FaultyFileLayer::pullCardAfter(const QString& root, off_t bytes) {
    const std::lock_guard lock(mutex_);
    cardRoot_ = QFile::encodeName(root);
    cardBytesLeft_ = bytes;
}

int FaultyFileLayer::status(const QByteArray& path, struct stat* status) {
    if (gone(path))
        return -1;
    const int result = PosixFileLayer::status(path, status);
    const std::lock_guard lock(mutex_);
    // What is left where a pulled card was mounted: an empty folder of another file system.
    if (result == 0 && cardBytesLeft_ == 0 && path == cardRoot_)
        status->st_dev ^= 1;
    return result;
}

int FaultyFileLayer::linkStatus(const QByteArray& path, struct stat* status) {
    return gone(path) ? -1 : PosixFileLayer::linkStatus(path, status);
}

int FaultyFileLayer::listFolder(const QByteArray& path, std::vector<Entry>* entries) {
    if (gone(path))
        return -1;
    {
        const std::lock_guard lock(mutex_);
        if (cardBytesLeft_ == 0 && path == cardRoot_) {
            entries->clear();
            return 0;
        }
    }
    return PosixFileLayer::listFolder(path, entries);
}

int FaultyFileLayer::makeLink(const QByteArray& target, const QByteArray& path) {
    {
        const std::lock_guard lock(mutex_);
        if (!linklessFolder_.isEmpty() && path.startsWith(linklessFolder_)) {
            errno = EPERM;
            return -1;
        }
    }
    return PosixFileLayer::makeLink(target, path);
}

void FaultyFileLayer::failFlushesNamed(const QByteArray& text, int error) {
    const std::lock_guard lock(mutex_);
    unflushableName_ = text;
    unflushableError_ = error;
}

bool FaultyFileLayer::refusesFlush(int fd) const {
    int error = faultsFor(fd).flushError;
    const QByteArray path = pathOf(fd);
    {
        const std::lock_guard lock(mutex_);
        if (error == 0 && !unflushableName_.isEmpty() && path.contains(unflushableName_))
            error = unflushableError_;
    }
    errno = error;
    return error != 0;
}

int FaultyFileLayer::flushRange(int fd, off_t offset, size_t size) {
    return refusesFlush(fd) ? -1 : PosixFileLayer::flushRange(fd, offset, size);
}

int FaultyFileLayer::flushData(int fd) {
    return refusesFlush(fd) ? -1 : PosixFileLayer::flushData(fd);
}

int FaultyFileLayer::flushFileSystem(int fd) {
    {
        const std::lock_guard lock(mutex_);
        ++fileSystemFlushes_;
    }
    return refusesFlush(fd) ? -1 : PosixFileLayer::flushFileSystem(fd);
}

// The lying byte shows once a drop covering it came after the last write covering it.
void FaultyFileLayer::dropCache(int fd, off_t offset, size_t size) {
    {
        const std::lock_guard lock(mutex_);
        const auto path = open_.find(fd);
        const off_t at = path == open_.end() ? -1 : faultsForPath(path->second).mediumCorruptAt;
        if (at >= offset && (size == 0 || at < offset + off_t(size)))
            dropped_.insert(path->second);
    }
    PosixFileLayer::dropCache(fd, offset, size);
}

int FaultyFileLayer::readsOf(const QString& path) const {
    const std::lock_guard lock(mutex_);
    const auto found = reads_.find(QFile::encodeName(path));
    return found == reads_.end() ? 0 : found->second;
}

int FaultyFileLayer::fileSystemFlushes() const {
    const std::lock_guard lock(mutex_);
    return fileSystemFlushes_;
}

QByteArray FaultyFileLayer::pathOf(int fd) const {
    const std::lock_guard lock(mutex_);
    const auto path = open_.find(fd);
    return path == open_.end() ? QByteArray() : path->second;
}

void FaultyFileLayer::failCreationsUnder(const QString& folder) {
    const std::lock_guard lock(mutex_);
    fullFolder_ = QFile::encodeName(folder) + '/';
}

bool FaultyFileLayer::full(const QByteArray& path) const {
    const std::lock_guard lock(mutex_);
    if ((fullFolder_.isEmpty() || !path.startsWith(fullFolder_)) &&
        (refusedName_.isEmpty() || !path.contains(refusedName_)))
        return false;
    errno = ENOSPC;
    return true;
}

int FaultyFileLayer::openReadWrite(const QByteArray& path) {
    if (full(path))
        return -1;
    return track(PosixFileLayer::openReadWrite(path), path);
}

int FaultyFileLayer::makeFolder(const QByteArray& path) {
    return full(path) ? -1 : PosixFileLayer::makeFolder(path);
}

int FaultyFileLayer::createNew(const QByteArray& path) {
    return full(path) ? -1 : PosixFileLayer::createNew(path);
}

int FaultyFileLayer::close(int fd) {
    {
        const std::lock_guard lock(mutex_);
        open_.erase(fd);
    }
    return PosixFileLayer::close(fd);
}

FaultyFileLayer::Faults FaultyFileLayer::faultsFor(int fd) const {
    const std::lock_guard lock(mutex_);
    const auto path = open_.find(fd);
    return path == open_.end() ? Faults() : faultsForPath(path->second);
}

FaultyFileLayer::Faults FaultyFileLayer::faultsForPath(const QByteArray& given) const {
    const QByteArray path = finalPathOf(given);
    // A fault set for a path ending applies to every file whose path ends so.
    for (const auto& [ending, faults] : faults_) {
        if (path.endsWith(ending))
            return faults;
    }
    return {};
}

bool FaultyFileLayer::applyAttributes(const QByteArray& path, const struct stat& attributes) {
    const std::lock_guard lock(mutex_);
    return !faultsForPath(path).attributesFail && PosixFileLayer::applyAttributes(path, attributes);
}

ssize_t FaultyFileLayer::read(int fd, void* buffer, size_t size, off_t offset) {
    const Faults faults = faultsFor(fd);
    const QByteArray path = pathOf(fd);
    if (faults.readDelayMs > 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(faults.readDelayMs));
    if (faults.readLimit >= 0 && offset + off_t(size) > faults.readLimit) {
        if (offset >= faults.readLimit) {
            errno = EIO;
            return -1;
        }
        size = size_t(faults.readLimit - offset);
    }
    bool onMedium = false;
    {
        const std::lock_guard lock(mutex_);
        if (cardBytesLeft_ >= 0 && path.startsWith(cardRoot_ + '/')) {
            if (cardBytesLeft_ == 0) {
                errno = ENODEV;
                return -1;
            }
            size = std::min(size, size_t(cardBytesLeft_));
            cardBytesLeft_ -= off_t(size);
        }
        onMedium = dropped_.count(path) > 0;
        ++reads_[path];
    }
    const ssize_t n = PosixFileLayer::read(fd, buffer, size, offset);
    const off_t at = faults.mediumCorruptAt;
    if (onMedium && n > 0 && at >= offset && at < offset + n)
        static_cast<char*>(buffer)[at - offset] ^= char(0xFF);
    return n;
}

ssize_t FaultyFileLayer::write(int fd, const void* buffer, size_t size, off_t offset) {
    const Faults faults = faultsFor(fd);
    {
        const std::lock_guard lock(mutex_);
        const auto path = open_.find(fd);
        const off_t at = faults.mediumCorruptAt;
        if (path != open_.end() && at >= offset && at < offset + off_t(size))
            dropped_.erase(path->second);  // the cache holds what was written again
    }
    if (faults.writeLimit >= 0 && offset + off_t(size) > faults.writeLimit) {
        if (offset >= faults.writeLimit) {
            errno = ENOSPC;
            return -1;
        }
        size = size_t(faults.writeLimit - offset);
    }
    if (faults.stallAt >= 0 && offset + off_t(size) > faults.stallAt)
        size = offset >= faults.stallAt ? 0 : size_t(faults.stallAt - offset);
    if (size == 0)
        return 0;
    if (faults.corruptAt >= offset && faults.corruptAt < offset + off_t(size)) {
        std::vector<char> copy(static_cast<const char*>(buffer),
                               static_cast<const char*>(buffer) + size);
        copy[size_t(faults.corruptAt - offset)] ^= char(0xFF);
        return PosixFileLayer::write(fd, copy.data(), size, offset);
    }
    return PosixFileLayer::write(fd, buffer, size, offset);
}
