#include "ZipArchive.h"

#include <archive.h>
#include <archive_entry.h>
#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

#include "QVException.h"
#include "QVLocalPaths.h"
#include "QVLog.h"
#include "UniqueFd.h"

namespace {

constexpr size_t kChunkSize = size_t(1) << 20;
constexpr size_t kReadBlockSize = size_t(1) << 16;
constexpr int kPartialNameAttempts = 16;
constexpr int kExtractFlags = ARCHIVE_EXTRACT_TIME | ARCHIVE_EXTRACT_PERM |
                              ARCHIVE_EXTRACT_SECURE_NODOTDOT | ARCHIVE_EXTRACT_SECURE_SYMLINKS |
                              ARCHIVE_EXTRACT_SECURE_NOABSOLUTEPATHS;

using ArchivePtr = std::unique_ptr<archive, int (*)(archive*)>;
using EntryPtr = std::unique_ptr<archive_entry, void (*)(archive_entry*)>;
using DirPtr = std::unique_ptr<DIR, int (*)(DIR*)>;

QString archiveError(archive* handle) {
    const char* text = archive_error_string(handle);
    return text != nullptr ? QString::fromLocal8Bit(text) : QStringLiteral("unknown error");
}

bool fail(const QString& path, const QString& reason) {
    QVLog::appendLog(u"Zip archive: %@: %@", path, reason);
    return false;
}

bool fail(const QByteArray& path, const QString& reason) {
    return fail(QFile::decodeName(path), reason);
}

// The archive under construction: a temporary file beside the destination that is removed
// unless it was renamed into place.
class PartialFile {
  public:
    explicit PartialFile(const QString& destination)
        : destination_(QFile::encodeName(destination)) {
        const QByteArray folder = QFile::encodeName(QFileInfo(destination).absolutePath());
        for (int attempt = 0; attempt < kPartialNameAttempts && !fd_.valid(); ++attempt) {
            path_ = folder + "/.cardsweep-" + QVLocalPaths::randomString(12).toLatin1() +
                    ".zip-partial";
            fd_.reset(open(path_.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
            if (!fd_.valid() && errno != EEXIST) {
                break;
            }
        }
        if (!fd_.valid()) {
            path_.clear();
        }
    }
    ~PartialFile() {
        if (!path_.isEmpty()) {
            unlink(path_.constData());
        }
    }
    PartialFile(const PartialFile&) = delete;
    PartialFile& operator=(const PartialFile&) = delete;

    int fd() const { return fd_.get(); }
    bool valid() const { return fd_.valid(); }

    /// Flushes, closes and renames into place; the temporary name is gone either way.
    bool commit() {
        if (fsync(fd_.get()) != 0 || fd_.close() != 0 ||
            rename(path_.constData(), destination_.constData()) != 0) {
            return fail(destination_, qt_error_string(errno));
        }
        path_.clear();
        return true;
    }

  private:
    QByteArray destination_;
    QByteArray path_;
    UniqueFd fd_;
};

struct Writing {
    archive* zip = nullptr;
    struct stat self {};  // the archive being written, in case it lies inside the source
    std::vector<char> buffer = std::vector<char>(kChunkSize);
};

bool writeHeader(Writing& w, const struct stat& info, const QByteArray& name,
                 const QByteArray& symlinkTarget = {}) {
    const EntryPtr entry(archive_entry_new(), &archive_entry_free);
    archive_entry_copy_stat(entry.get(), &info);
    archive_entry_copy_pathname(entry.get(), name.constData());
    if (S_ISLNK(info.st_mode)) {
        archive_entry_copy_symlink(entry.get(), symlinkTarget.constData());
    }
    if (!S_ISREG(info.st_mode)) {
        archive_entry_set_size(entry.get(), 0);
    }
    const int status = archive_write_header(w.zip, entry.get());
    if (status == ARCHIVE_WARN) {
        QVLog::appendLog(u"Zip archive: %@: %@", QFile::decodeName(name), archiveError(w.zip));
    }
    return status >= ARCHIVE_WARN || fail(name, archiveError(w.zip));
}

bool addFile(Writing& w, const QByteArray& path, const QByteArray& name) {
    const UniqueFd fd(open(path.constData(), O_RDONLY | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC));
    struct stat info {};
    if (!fd.valid() || fstat(fd.get(), &info) != 0) {
        return fail(path, qt_error_string(errno));
    }
    posix_fadvise(fd.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    if (!writeHeader(w, info, name)) {
        return false;
    }
    // The header promised st_size bytes (and Zip64 above 4 GiB); exactly that many follow.
    off_t remaining = info.st_size;
    while (remaining > 0) {
        const size_t wanted = size_t(std::min<off_t>(remaining, off_t(w.buffer.size())));
        const ssize_t got = read(fd.get(), w.buffer.data(), wanted);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            return fail(path, qt_error_string(errno));
        }
        if (got == 0) {
            return fail(path, QStringLiteral("the file shrank while it was being read"));
        }
        if (archive_write_data(w.zip, w.buffer.data(), size_t(got)) != got) {
            return fail(path, archiveError(w.zip));
        }
        remaining -= got;
    }
    return true;
}

QByteArray readLink(const QByteArray& path, off_t sizeHint) {
    QByteArray target(qsizetype(std::max<off_t>(sizeHint, 64)) + 1, Qt::Uninitialized);
    for (;;) {
        const ssize_t length = readlink(path.constData(), target.data(), size_t(target.size()));
        if (length < 0) {
            return {};
        }
        if (length < target.size()) {
            target.truncate(length);
            return target;
        }
        target.resize(target.size() * 2);
    }
}

bool addItem(Writing& w, const QByteArray& path, const QByteArray& name);

bool addChildren(Writing& w, const QByteArray& folder, const QByteArray& prefix) {
    std::vector<QByteArray> names;
    {
        const DirPtr dir(opendir(folder.constData()), &closedir);
        if (!dir) {
            return fail(folder, qt_error_string(errno));
        }
        errno = 0;
        while (const dirent* child = readdir(dir.get())) {
            const QByteArray childName(child->d_name);
            if (childName != "." && childName != "..") {
                names.push_back(childName);
            }
        }
        if (errno != 0) {
            return fail(folder, qt_error_string(errno));
        }
    }
    std::sort(names.begin(), names.end());
    const QByteArray base = folder == "/" ? QByteArray() : folder;
    for (const QByteArray& childName : names) {
        const QByteArray entryName = prefix.isEmpty() ? childName : prefix + '/' + childName;
        if (!addItem(w, base + '/' + childName, entryName)) {
            return false;
        }
    }
    return true;
}

bool addItem(Writing& w, const QByteArray& path, const QByteArray& name) {
    struct stat info {};
    if (lstat(path.constData(), &info) != 0) {
        return fail(path, qt_error_string(errno));
    }
    if (info.st_dev == w.self.st_dev && info.st_ino == w.self.st_ino) {
        return true;
    }
    if (S_ISREG(info.st_mode)) {
        return addFile(w, path, name);
    }
    if (S_ISDIR(info.st_mode)) {
        return writeHeader(w, info, name) && addChildren(w, path, name);
    }
    if (S_ISLNK(info.st_mode)) {
        const QByteArray target = readLink(path, info.st_size);
        return (!target.isEmpty() || fail(path, qt_error_string(errno))) &&
               writeHeader(w, info, name, target);
    }
    QVLog::appendLog(u"Zip archive: skipped %@, neither a file, a folder nor a link",
                     QFile::decodeName(path));
    return true;
}

bool openWriter(archive* zip, int fd) {
    return archive_write_set_format_zip(zip) == ARCHIVE_OK &&
           archive_write_set_options(zip, "hdrcharset=UTF-8") == ARCHIVE_OK &&
           archive_write_set_bytes_in_last_block(zip, 1) == ARCHIVE_OK &&
           archive_write_open_fd(zip, fd) == ARCHIVE_OK;
}

bool copyEntryData(archive* reader, archive* disk, const QString& name) {
    const void* block = nullptr;
    size_t size = 0;
    la_int64_t offset = 0;
    int status = ARCHIVE_OK;
    while ((status = archive_read_data_block(reader, &block, &size, &offset)) == ARCHIVE_OK) {
        if (archive_write_data_block(disk, block, size, offset) < ARCHIVE_WARN) {
            return fail(name, archiveError(disk));
        }
    }
    // A warning here is a checksum mismatch: the bytes on disk are not the archived ones.
    return status == ARCHIVE_EOF || fail(name, archiveError(reader));
}

bool extractEntry(archive* reader, archive* disk, archive_entry* entry) {
    const QString name = QFile::decodeName(archive_entry_pathname(entry));
    const int status = archive_write_header(disk, entry);
    if (status < ARCHIVE_WARN) {
        return fail(name, archiveError(disk));
    }
    if (status == ARCHIVE_WARN) {
        QVLog::appendLog(u"Zip archive: %@: %@", name, archiveError(disk));
    }
    return copyEntryData(reader, disk, name) &&
           (archive_write_finish_entry(disk) >= ARCHIVE_WARN || fail(name, archiveError(disk)));
}

// Runs on a thread of its own: libarchive writes relative to the working directory, which
// after unshare(CLONE_FS) belongs to this thread alone.
bool extractOnOwnThread(const QByteArray& archivePath, const QByteArray& folder) {
    if (unshare(CLONE_FS) != 0) {
        return fail(folder, qt_error_string(errno));
    }
    const ArchivePtr reader(archive_read_new(), &archive_read_free);
    archive_read_support_format_zip(reader.get());
    if (archive_read_open_filename(reader.get(), archivePath.constData(), kReadBlockSize) !=
        ARCHIVE_OK) {
        return fail(archivePath, archiveError(reader.get()));
    }
    if (chdir(folder.constData()) != 0) {
        return fail(folder, qt_error_string(errno));
    }
    const ArchivePtr disk(archive_write_disk_new(), &archive_write_free);
    archive_write_disk_set_options(disk.get(), kExtractFlags);
    for (;;) {
        archive_entry* entry = nullptr;
        const int status = archive_read_next_header(reader.get(), &entry);
        if (status == ARCHIVE_EOF) {
            break;
        }
        if (status < ARCHIVE_WARN) {
            return fail(archivePath, archiveError(reader.get()));
        }
        if (status == ARCHIVE_WARN) {
            QVLog::appendLog(u"Zip archive: %@: %@", QFile::decodeName(archivePath),
                             archiveError(reader.get()));
        }
        if (!extractEntry(reader.get(), disk.get(), entry)) {
            return false;
        }
    }
    // Closing sets the folders' own modes and times, held back until their contents exist.
    return archive_write_close(disk.get()) == ARCHIVE_OK || fail(folder, archiveError(disk.get()));
}

}  // namespace

bool ZipArchive::compress(const QString& source, const QString& destinationFile,
                          bool includeParent) {
    const QString given = QDir::cleanPath(QDir::current().absoluteFilePath(source));
    const std::unique_ptr<char, decltype(&std::free)> real(
        realpath(QFile::encodeName(given).constData(), nullptr), &std::free);
    struct stat info {};
    if (!real || stat(real.get(), &info) != 0) {
        return fail(source, qt_error_string(errno));
    }
    PartialFile partial(destinationFile);
    if (!partial.valid()) {
        return fail(destinationFile, qt_error_string(errno));
    }
    const ArchivePtr zip(archive_write_new(), &archive_write_free);
    Writing writing;
    writing.zip = zip.get();
    if (fstat(partial.fd(), &writing.self) != 0 || !openWriter(zip.get(), partial.fd())) {
        return fail(destinationFile, archiveError(zip.get()));
    }
    const QByteArray path(real.get());
    const QByteArray name = QFile::encodeName(QFileInfo(given).fileName());
    const bool contentsOnly = S_ISDIR(info.st_mode) && (!includeParent || name.isEmpty());
    const bool added = contentsOnly ? addChildren(writing, path, {}) : addItem(writing, path, name);
    if (!added) {
        return false;
    }
    if (archive_write_close(zip.get()) != ARCHIVE_OK) {
        return fail(destinationFile, archiveError(zip.get()));
    }
    return partial.commit();
}

bool ZipArchive::extract(const QString& archiveFile, const QString& destinationFolder) {
    if (!QDir().mkpath(destinationFolder)) {
        return fail(destinationFolder, QStringLiteral("the folder can't be created"));
    }
    const QByteArray archivePath = QFile::encodeName(QFileInfo(archiveFile).absoluteFilePath());
    const QByteArray folder = QFile::encodeName(QFileInfo(destinationFolder).absoluteFilePath());
    bool extracted = false;
    std::thread worker([&] {
        try {
            extracted = extractOnOwnThread(archivePath, folder);
        } catch (const std::exception& exception) {
            QVException::logException(exception, "ZipArchive::extract");
        }
    });
    worker.join();
    return extracted;
}
