#include "FileHash.h"

#include <fcntl.h>
#include <unistd.h>

#include <QFile>
#include <cerrno>
#include <vector>

#include "DigestContext.h"

namespace {

constexpr std::uint64_t kCarryMultiple = 157286400;  // 150 MiB

class FileDescriptor {
  public:
    explicit FileDescriptor(int fd) : fd_(fd) {}
    ~FileDescriptor() {
        if (fd_ >= 0)
            ::close(fd_);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const { return fd_; }

  private:
    int fd_;
};

ssize_t readSome(int fd, char* buffer, std::size_t size) {
    for (;;) {
        const ssize_t n = ::read(fd, buffer, size);
        if (n >= 0 || errno != EINTR)
            return n;
    }
}

std::optional<QString> hashFile(DigestContext::Kind kind, const QString& path,
                                std::size_t chunkSize, const FileHashProgress& progress) {
    const FileDescriptor file(::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0)
        return std::nullopt;
    ::posix_fadvise(file.get(), 0, 0, POSIX_FADV_SEQUENTIAL);

    DigestContext digest(kind);
    std::vector<char> buffer(chunkSize == 0 ? 4096 : chunkSize);
    std::uint64_t pending = 0;
    bool failed = false;
    for (;;) {
        const ssize_t n = readSome(file.get(), buffer.data(), buffer.size());
        if (n < 0) {
            failed = true;
            break;
        }
        if (n == 0)
            break;
        digest.update(buffer.data(), std::size_t(n));
        if (!progress)
            continue;
        pending += std::uint64_t(n);
        // Deliberately "not a multiple": in practice every read of a small chunk is reported.
        if (pending % kCarryMultiple != 0) {
            progress(pending);
            pending = 0;
        }
    }
    if (progress && pending != 0)
        progress(pending);
    if (failed)
        return std::nullopt;
    return digest.hexDigest();
}

std::optional<QString> guardedHash(DigestContext::Kind kind, const QString& path,
                                   std::size_t chunkSize, const FileHashProgress& progress) {
    try {
        return hashFile(kind, path, chunkSize, progress);
    } catch (...) {
        return std::nullopt;
    }
}

}  // namespace

std::optional<QString> FileMD5HashCreateWithPath(const QString& path, std::size_t chunkSize,
                                                 const FileHashProgress& progress) {
    return guardedHash(DigestContext::Kind::MD5, path, chunkSize, progress);
}

std::optional<QString> FileSHA1HashCreateWithPath(const QString& path, std::size_t chunkSize,
                                                  const FileHashProgress& progress) {
    return guardedHash(DigestContext::Kind::SHA1, path, chunkSize, progress);
}
