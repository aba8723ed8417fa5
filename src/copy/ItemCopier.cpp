#include "ItemCopier.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QFile>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <vector>

#include "UniqueFd.h"

namespace {

struct DirCloser {
    void operator()(DIR* dir) const { ::closedir(dir); }
};

Status fail(const QByteArray& path, int code) {
    return Status::fromErrno(QString(), path, code);
}

void applyTimes(int fd, const struct stat& status) {
    const timespec times[2] = {status.st_atim, status.st_mtim};
    ::futimens(fd, times);
}

// Kernel-side copy first; plain reads and writes where the file systems can't do it.
bool copyBytes(int in, int out, off_t size) {
    off_t done = 0;
    while (done < size) {
        const ssize_t n = ::copy_file_range(in, nullptr, out, nullptr, size_t(size - done), 0);
        if (n > 0) {
            done += n;
            continue;
        }
        if (n == 0)
            break;
        if (errno == EINTR)
            continue;
        if (errno != EXDEV && errno != ENOSYS && errno != EOPNOTSUPP && errno != EINVAL)
            return false;
        break;
    }
    if (done >= size)
        return true;
    std::vector<char> buffer(1 << 20);
    for (;;) {
        const ssize_t n = ::pread(in, buffer.data(), buffer.size(), done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return false;
        if (n == 0)
            return true;
        for (ssize_t written = 0; written < n;) {
            const ssize_t w =
                ::pwrite(out, buffer.data() + written, size_t(n - written), done + written);
            if (w < 0 && errno == EINTR)
                continue;
            if (w <= 0)
                return false;
            written += w;
        }
        done += n;
    }
}

}  // namespace

Status ItemCopier::copy(const QString& source, const QString& destination) {
    return copyEntry(QFile::encodeName(source), QFile::encodeName(destination));
}

Status ItemCopier::copyEntry(const QByteArray& source, const QByteArray& destination) {
    struct stat status {};
    if (::lstat(source.constData(), &status) != 0)
        return fail(source, errno);
    if (S_ISLNK(status.st_mode))
        return copyLink(source, destination);
    if (S_ISDIR(status.st_mode))
        return copyFolder(source, destination, status);
    if (S_ISREG(status.st_mode))
        return copyRegularFile(source, destination, status);
    return fail(source, ENOTSUP);
}

Status ItemCopier::copyRegularFile(const QByteArray& source, const QByteArray& destination,
                                   const struct stat& status) {
    const UniqueFd in(::open(source.constData(), O_RDONLY | O_CLOEXEC));
    if (in.get() < 0)
        return fail(source, errno);
    const UniqueFd out(::open(destination.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC,
                              status.st_mode & 07777));
    if (out.get() < 0)
        return fail(destination, errno);
    if (!copyBytes(in.get(), out.get(), status.st_size) ||
        ::fchmod(out.get(), status.st_mode & 07777) != 0) {
        const int code = errno;
        ::unlink(destination.constData());
        return fail(destination, code);
    }
    applyTimes(out.get(), status);
    return {};
}

Status ItemCopier::copyFolder(const QByteArray& source, const QByteArray& destination,
                              const struct stat& status) {
    if (::mkdir(destination.constData(), 0700) != 0)
        return fail(destination, errno);
    const std::unique_ptr<DIR, DirCloser> dir(::opendir(source.constData()));
    Status copied = dir ? Status() : fail(source, errno);
    while (copied.ok()) {
        errno = 0;
        const dirent* entry = ::readdir(dir.get());
        if (!entry) {
            if (errno != 0)
                copied = fail(source, errno);
            break;
        }
        const QByteArray name(entry->d_name);
        if (name == "." || name == "..")
            continue;
        copied = copyEntry(source + '/' + name, destination + '/' + name);
    }
    if (!copied.ok()) {
        std::error_code ignored;
        std::filesystem::remove_all(destination.constData(), ignored);
        return copied;
    }
    const UniqueFd folder(::open(destination.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.get() >= 0) {
        ::fchmod(folder.get(), status.st_mode & 07777);
        applyTimes(folder.get(), status);
    }
    return {};
}

Status ItemCopier::copyLink(const QByteArray& source, const QByteArray& destination) {
    std::vector<char> target(PATH_MAX + 1);
    const ssize_t length = ::readlink(source.constData(), target.data(), target.size() - 1);
    if (length < 0)
        return fail(source, errno);
    target[size_t(length)] = '\0';
    if (::symlink(target.data(), destination.constData()) != 0)
        return fail(destination, errno);
    return {};
}
