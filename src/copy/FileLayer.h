#pragma once
// The file calls of the copy engine, behind an interface so tests can inject faults (a disk that
// fills up, a card pulled mid-read, a copy that comes back corrupted). Calls mirror POSIX: a
// result below 0 is a failure with errno set. Implementations must be safe from any thread.

#include <sys/stat.h>
#include <sys/types.h>

#include <QByteArray>

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
    virtual int status(const QByteArray& path, struct stat* status) = 0;
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

    /// The real file system.
    static FileLayer& posix();
};
