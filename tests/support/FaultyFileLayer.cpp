#include "FaultyFileLayer.h"

#include <QFile>
#include <cerrno>
#include <chrono>
#include <thread>
#include <vector>

int FaultyFileLayer::track(int fd, const QByteArray& path) {
    if (fd < 0)
        return fd;
    const std::lock_guard lock(mutex_);
    open_[fd] = path;
    return fd;
}

int FaultyFileLayer::openRead(const QByteArray& path) {
    {
        const std::lock_guard lock(mutex_);
        if (faultsForPath(path).openFails) {
            errno = EACCES;
            return -1;
        }
    }
    return track(PosixFileLayer::openRead(path), path);
}

void FaultyFileLayer::failCreationsUnder(const QString& folder) {
    const std::lock_guard lock(mutex_);
    fullFolder_ = QFile::encodeName(folder) + '/';
}

int FaultyFileLayer::openReadWrite(const QByteArray& path) {
    {
        const std::lock_guard lock(mutex_);
        if (!fullFolder_.isEmpty() && path.startsWith(fullFolder_)) {
            errno = ENOSPC;
            return -1;
        }
    }
    return track(PosixFileLayer::openReadWrite(path), path);
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

FaultyFileLayer::Faults FaultyFileLayer::faultsForPath(const QByteArray& path) const {
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
    if (faults.readDelayMs > 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(faults.readDelayMs));
    if (faults.readLimit >= 0 && offset + off_t(size) > faults.readLimit) {
        if (offset >= faults.readLimit) {
            errno = EIO;
            return -1;
        }
        size = size_t(faults.readLimit - offset);
    }
    return PosixFileLayer::read(fd, buffer, size, offset);
}

ssize_t FaultyFileLayer::write(int fd, const void* buffer, size_t size, off_t offset) {
    const Faults faults = faultsFor(fd);
    if (faults.writeLimit >= 0 && offset + off_t(size) > faults.writeLimit) {
        if (offset >= faults.writeLimit) {
            errno = ENOSPC;
            return -1;
        }
        size = size_t(faults.writeLimit - offset);
    }
    if (faults.corruptAt >= offset && faults.corruptAt < offset + off_t(size)) {
        std::vector<char> copy(static_cast<const char*>(buffer),
                               static_cast<const char*>(buffer) + size);
        copy[size_t(faults.corruptAt - offset)] ^= char(0xFF);
        return PosixFileLayer::write(fd, copy.data(), size, offset);
    }
    return PosixFileLayer::write(fd, buffer, size, offset);
}
