#include "PosixFileLayer.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

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
    return ::stat(path.constData(), status);
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
