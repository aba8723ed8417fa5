#include "FileHash.h"

#include <QFile>
#include <cerrno>
#include <vector>

#include "DigestContext.h"

namespace {

constexpr std::uint64_t kCarryMultiple = 157286400;  // 150 MiB

class OpenFile {
  public:
    OpenFile(FileLayer& files, const QString& path)
        : files_(files), fd_(files.openRead(QFile::encodeName(path))) {}
    ~OpenFile() {
        if (fd_ >= 0)
            files_.close(fd_);
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    int get() const { return fd_; }

  private:
    FileLayer& files_;
    int fd_;
};

Result<QString> hashFile(DigestContext::Kind kind, const QString& path, std::size_t chunkSize,
                         const FileHashProgress& progress, FileLayer& files) {
    const OpenFile file(files, path);
    if (file.get() < 0)
        return Status::fromErrno(QStringLiteral("open"), path, errno);
    files.adviseSequential(file.get());

    DigestContext digest(kind);
    std::vector<char> buffer(chunkSize == 0 ? 4096 : chunkSize);
    std::uint64_t pending = 0;
    off_t offset = 0;
    int failed = 0;  // errno of a read that failed
    for (;;) {
        const ssize_t n = files.read(file.get(), buffer.data(), buffer.size(), offset);
        if (n < 0) {
            failed = errno;
            break;
        }
        if (n == 0)
            break;
        offset += off_t(n);
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
    if (failed != 0)
        return Status::fromErrno(QStringLiteral("read"), path, failed);
    return digest.hexDigest();
}

// A progress callback may throw (std::function and Qt containers can); the digest then fails.
Result<QString> guardedHash(DigestContext::Kind kind, const QString& path, std::size_t chunkSize,
                            const FileHashProgress& progress, FileLayer& files) {
    try {
        return hashFile(kind, path, chunkSize, progress, files);
    } catch (...) {
        return Status::failure(QStringLiteral("digest"), QStringLiteral("it stopped unexpectedly"),
                               path);
    }
}

}  // namespace

Result<QString> FileHashCreateWithPath(DigestContext::Kind kind, const QString& path,
                                       std::size_t chunkSize, const FileHashProgress& progress,
                                       FileLayer& files) {
    return guardedHash(kind, path, chunkSize, progress, files);
}

Result<QString> FileMD5HashCreateWithPath(const QString& path, std::size_t chunkSize,
                                          const FileHashProgress& progress, FileLayer& files) {
    return guardedHash(DigestContext::Kind::MD5, path, chunkSize, progress, files);
}

Result<QString> FileSHA1HashCreateWithPath(const QString& path, std::size_t chunkSize,
                                           const FileHashProgress& progress, FileLayer& files) {
    return guardedHash(DigestContext::Kind::SHA1, path, chunkSize, progress, files);
}
