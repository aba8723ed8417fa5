#pragma once
// The file calls of the copy engine, the card walk and the read-back from the media, behind an
// interface so tests can inject faults (a disk that fills up, a card pulled mid-read, a medium
// that stores something else than it was given). Calls mirror POSIX: a result below 0 is a
// failure with errno set. Paths are bytes, as the file system holds them. Implementations must
// be safe from any thread.

#include <sys/stat.h>
#include <sys/types.h>

#include <QByteArray>
#include <cstdint>
#include <optional>
#include <vector>

class FileLayer {
  public:
    virtual ~FileLayer() = default;

    /// Opens for reading; a file descriptor or -1.
    virtual int openRead(const QByteArray& path) = 0;
    /// Creates or truncates for reading and writing; a file descriptor or -1.
    virtual int openReadWrite(const QByteArray& path) = 0;
    virtual ssize_t read(int fd, void* buffer, size_t size, off_t offset) = 0;
    virtual ssize_t write(int fd, const void* buffer, size_t size, off_t offset) = 0;
    virtual int close(int fd) = 0;
    /// stat(2): links followed; a block device reports its capacity as its size.
    virtual int status(const QByteArray& path, struct stat* status) = 0;
    /// lstat(2): a link is described itself.
    virtual int linkStatus(const QByteArray& path, struct stat* status) = 0;
    /// Gives the file the mode, owner (where permitted) and access and modification times.
    virtual bool applyAttributes(const QByteArray& path, const struct stat& attributes) = 0;
    /// Hints that the file will be read front to back.
    virtual void adviseSequential(int fd) { static_cast<void>(fd); }
    /// Starts writing the range to the disk without waiting, so written data doesn't pile up
    /// in memory for one long flush at the end.
    virtual void startWriteback(int fd, off_t offset, size_t size) {
        static_cast<void>(fd);
        static_cast<void>(offset);
        static_cast<void>(size);
    }

    /// Starts reading the file into the cache in the background, so a later read doesn't wait
    /// (many small files then arrive in parallel instead of one after another).
    virtual void prefetch(const QByteArray& path) { static_cast<void>(path); }
    /// As prefetch, for an open file.
    virtual void readAhead(int fd) { static_cast<void>(fd); }

    // ---- Reaching the medium

    /// Writes the range to the medium and waits for it (sync_file_range); data only.
    virtual int flushRange(int fd, off_t offset, size_t size) = 0;
    /// fdatasync(2): the file's data and what is needed to read it back are on the medium.
    virtual int flushData(int fd) = 0;
    /// syncfs(2) of the file system holding fd; reports write-back errors since fd was opened.
    virtual int flushFileSystem(int fd) = 0;
    /// Forgets the cached pages of the range, so the next read comes from the medium. Only
    /// pages already written to the medium can go.
    virtual void dropCache(int fd, off_t offset, size_t size) = 0;
    /// True when a flush of the whole file system doesn't reach the medium of its files and
    /// each file must be flushed on its own (FUSE file systems).
    virtual bool needsFileFlush(int fd) = 0;

    // ---- The file system around a file

    struct Space {
        std::uint64_t total = 0;      // bytes the file system holds
        std::uint64_t available = 0;  // bytes an unprivileged writer may still use
        std::uint64_t blockSize = 0;  // the unit space is allocated in
    };
    /// statvfs(2) of the file system holding path: 0, or -1 with errno set.
    virtual int freeSpace(const QByteArray& path, Space* space) = 0;
    /// An extended attribute of the item itself (links not followed): 0, or -1 with errno set
    /// (ENODATA when it has none of that name).
    virtual int attribute(const QByteArray& path, const QByteArray& name, QByteArray* value) = 0;
    virtual int setAttribute(const QByteArray& path, const QByteArray& name,
                             const QByteArray& value) = 0;
    virtual int removeAttribute(const QByteArray& path, const QByteArray& name) = 0;

    // ---- Trees, links and folders

    struct Entry {
        QByteArray name;
    };
    /// The folder's entries in listing order, without "." and "..": 0, or -1 with errno set.
    virtual int listFolder(const QByteArray& path, std::vector<Entry>* entries) = 0;
    /// The text of a link, or -1 with errno set.
    virtual int readLink(const QByteArray& path, QByteArray* target) = 0;
    virtual int makeLink(const QByteArray& target, const QByteArray& path) = 0;
    /// mkdir(2) with mode 0777 less the umask; fails with EEXIST when anything is there.
    virtual int makeFolder(const QByteArray& path) = 0;
    /// Creates an empty file (mode 0644 less the umask); fails with EEXIST when anything is
    /// there, so two processes never both create it.
    virtual int createNew(const QByteArray& path) = 0;
    /// Removes a file or link (never a folder).
    virtual int removeFile(const QByteArray& path) = 0;
    /// Removes an empty folder.
    virtual int removeFolder(const QByteArray& path) = 0;
    /// rename(2): replaces what is at `to`.
    virtual int rename(const QByteArray& from, const QByteArray& to) = 0;
    /// Gives a folder its modification and access times (links not followed).
    virtual int setTimes(const QByteArray& path, const struct stat& attributes) = 0;

    /// Anything at all is at path (a dangling link too).
    bool exists(const QByteArray& path);
    /// Makes every missing folder above path through makeFolder: 0, or -1 with errno set.
    int makeParents(const QByteArray& path);
    /// Removes a file, link or whole folder through the calls above, links never followed.
    void removeTree(const QByteArray& path);
    /// A whole (small) file through the calls above; nullopt when it can't be read or is larger
    /// than limit.
    std::optional<QByteArray> readWhole(const QByteArray& path, std::size_t limit = 64 << 20);

    /// The real file system (PosixFileLayer). For the programs' setup only: everything else is
    /// handed the layer it works on.
    static FileLayer& posix();
};
