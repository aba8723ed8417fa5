#include "PosixFileLayer.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <vector>

FileLayer& FileLayer::posix() {
    static PosixFileLayer layer;  // stateless
    return layer;
}

int PosixFileLayer::openRead(const QByteArray& path) {
    return ::open(path.constData(), O_RDONLY | O_CLOEXEC);
}

int PosixFileLayer::openReadWrite(const QByteArray& path) {
    return ::open(path.constData(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
}

ssize_t PosixFileLayer::read(int fd, void* buffer, size_t size, off_t offset) {
    for (;;) {
        const ssize_t n = ::pread(fd, buffer, size, offset);
        if (n >= 0 || errno != EINTR)
            return n;
    }
}

ssize_t PosixFileLayer::write(int fd, const void* buffer, size_t size, off_t offset) {
    for (;;) {
        const ssize_t n = ::pwrite(fd, buffer, size, offset);
        if (n >= 0 || errno != EINTR)
            return n;
    }
}

int PosixFileLayer::close(int fd) {
    return ::close(fd);
}

int PosixFileLayer::status(const QByteArray& path, struct stat* status) {
    if (::stat(path.constData(), status) != 0)
        return -1;
    if (!S_ISBLK(status->st_mode))
        return 0;
    // A device reports no size of its own; its capacity is what a raw read will copy.
    const int fd = ::open(path.constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return 0;
    std::uint64_t bytes = 0;
    if (::ioctl(fd, BLKGETSIZE64, &bytes) == 0)
        status->st_size = off_t(bytes);
    ::close(fd);
    return 0;
}

bool PosixFileLayer::applyAttributes(const QByteArray& path, const struct stat& attributes) {
    // Only the superuser may give a file away; others keep their own ownership. The owner goes
    // first because changing it clears set-id bits.
    bool ok =
        ::lchown(path.constData(), attributes.st_uid, attributes.st_gid) == 0 || errno == EPERM;
    ok = ::chmod(path.constData(), attributes.st_mode & 07777) == 0 && ok;
    const timespec times[2] = {attributes.st_atim, attributes.st_mtim};
    return ::utimensat(AT_FDCWD, path.constData(), times, 0) == 0 && ok;
}

void PosixFileLayer::adviseSequential(int fd) {
    ::posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
}

void PosixFileLayer::startWriteback(int fd, off_t offset, size_t size) {
    ::sync_file_range(fd, offset, off_t(size), SYNC_FILE_RANGE_WRITE);
}

void PosixFileLayer::prefetch(const QByteArray& path) {
    const int fd = ::open(path.constData(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0)
        return;
    readAhead(fd);
    ::close(fd);
}

void PosixFileLayer::readAhead(int fd) {
    ::posix_fadvise(fd, 0, 0, POSIX_FADV_WILLNEED);
}

int PosixFileLayer::linkStatus(const QByteArray& path, struct stat* status) {
    return ::lstat(path.constData(), status);
}

int PosixFileLayer::flushRange(int fd, off_t offset, size_t size) {
    return ::sync_file_range(
        fd, offset, off_t(size),
        SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER);
}

int PosixFileLayer::flushData(int fd) {
    return ::fdatasync(fd);
}

int PosixFileLayer::flushFileSystem(int fd) {
    return ::syncfs(fd);
}

void PosixFileLayer::dropCache(int fd, off_t offset, size_t size) {
    ::posix_fadvise(fd, offset, off_t(size), POSIX_FADV_DONTNEED);
}

bool PosixFileLayer::needsFileFlush(int fd) {
    constexpr decltype(statfs::f_type) kFuseMagic = 0x65735546;
    struct statfs figures {};
    return ::fstatfs(fd, &figures) == 0 && figures.f_type == kFuseMagic;
}

int PosixFileLayer::listFolder(const QByteArray& path, std::vector<Entry>* entries) {
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(path.constData()), ::closedir);
    if (!folder)
        return -1;
    entries->clear();
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(folder.get());
        if (!entry)
            return errno == 0 ? 0 : -1;
        const QByteArray name(entry->d_name);
        if (name != "." && name != "..")
            entries->push_back({name});
    }
}

int PosixFileLayer::readLink(const QByteArray& path, QByteArray* target) {
    QByteArray text(PATH_MAX, Qt::Uninitialized);
    const ssize_t length = ::readlink(path.constData(), text.data(), size_t(text.size()));
    if (length < 0)
        return -1;
    text.truncate(length);
    *target = text;
    return 0;
}

int PosixFileLayer::makeLink(const QByteArray& target, const QByteArray& path) {
    return ::symlink(target.constData(), path.constData());
}

int PosixFileLayer::makeFolder(const QByteArray& path) {
    return ::mkdir(path.constData(), 0777);
}

int PosixFileLayer::createNew(const QByteArray& path) {
    const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    return fd < 0 ? -1 : ::close(fd);
}

int PosixFileLayer::freeSpace(const QByteArray& path, Space* space) {
    struct statvfs figures {};
    if (::statvfs(path.constData(), &figures) != 0)
        return -1;
    space->total = std::uint64_t(figures.f_blocks) * figures.f_frsize;
    space->available = std::uint64_t(figures.f_bavail) * figures.f_frsize;
    space->blockSize = figures.f_frsize;
    return 0;
}

int PosixFileLayer::attribute(const QByteArray& path, const QByteArray& name, QByteArray* value) {
    for (;;) {
        const ssize_t size = ::lgetxattr(path.constData(), name.constData(), nullptr, 0);
        if (size < 0)
            return -1;
        value->resize(size);
        const ssize_t read =
            ::lgetxattr(path.constData(), name.constData(), value->data(), size_t(size));
        if (read >= 0) {
            value->resize(read);
            return 0;
        }
        if (errno != ERANGE)  // grown since it was measured: measure again
            return -1;
    }
}

int PosixFileLayer::setAttribute(const QByteArray& path, const QByteArray& name,
                                 const QByteArray& value) {
    return ::lsetxattr(path.constData(), name.constData(), value.constData(), size_t(value.size()),
                       0);
}

int PosixFileLayer::removeAttribute(const QByteArray& path, const QByteArray& name) {
    return ::lremovexattr(path.constData(), name.constData());
}

int PosixFileLayer::removeFile(const QByteArray& path) {
    return ::unlink(path.constData());
}

int PosixFileLayer::removeFolder(const QByteArray& path) {
    return ::rmdir(path.constData());
}

int PosixFileLayer::rename(const QByteArray& from, const QByteArray& to) {
    return ::rename(from.constData(), to.constData());
}

int PosixFileLayer::setTimes(const QByteArray& path, const struct stat& attributes) {
    const timespec times[2] = {attributes.st_atim, attributes.st_mtim};
    return ::utimensat(AT_FDCWD, path.constData(), times, AT_SYMLINK_NOFOLLOW);
}
