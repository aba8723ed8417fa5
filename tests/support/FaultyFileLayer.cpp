#include "FaultyFileLayer.h"

#include <QFile>
#include <cerrno>
#include <chrono>
#include <thread>
#include <vector>

void FaultyFileLayer::failWritesAfter(const QString& path, off_t bytes) {
    const std::lock_guard lock(mutex_);
    faults_[QFile::encodeName(path)].writeLimit = bytes;
}

void FaultyFileLayer::corruptWriteAt(const QString& path, off_t offset) {
    const std::lock_guard lock(mutex_);
    faults_[QFile::encodeName(path)].corruptAt = offset;
}

void FaultyFileLayer::failReadsAfter(const QString& path, off_t bytes) {
    const std::lock_guard lock(mutex_);
    faults_[QFile::encodeName(path)].readLimit = bytes;
}

int FaultyFileLayer::track(int fd, const QByteArray& path) {
    if (fd < 0)
        return fd;
    const std::lock_guard lock(mutex_);
    open_[fd] = path;
    return fd;
}

int FaultyFileLayer::openRead(const QByteArray& path) {
    return track(PosixFileLayer::openRead(path), path);
}

void FaultyFileLayer::slowReads(const QString& path, int milliseconds) {
    const std::lock_guard lock(mutex_);
    faults_[QFile::encodeName(path)].readDelayMs = milliseconds;
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
    if (path == open_.end())
        return {};
    // A fault set for a path ending applies to every file whose path ends so.
    for (const auto& [ending, faults] : faults_) {
        if (path->second.endsWith(ending))
            return faults;
    }
    return {};
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
