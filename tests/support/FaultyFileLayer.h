#pragma once
// The real file system with faults injected by path (or by the ending of paths): a disk that
// fills up after some bytes, a write that lands corrupted, a medium that stores something else
// than the cache shows, a card that stops answering part-way through or is pulled, a file that
// vanishes, can't be opened, flushed or given its attributes, a file system without links.

#include <QByteArray>
#include <QFile>
#include <QString>
#include <map>
#include <mutex>
#include <set>

#include "PosixFileLayer.h"

class FaultyFileLayer : public PosixFileLayer {
  public:
    /// Writes to the file beyond this many bytes fail with ENOSPC (the part before still lands).
    void failWritesAfter(const QString& path, off_t bytes) {
        set(path, &Faults::writeLimit, bytes);
    }
    /// Writes to the file beyond this many bytes take nothing and say nothing (return 0).
    void stallWritesAfter(const QString& path, off_t bytes) { set(path, &Faults::stallAt, bytes); }
    /// The byte at this offset is written inverted.
    void corruptWriteAt(const QString& path, off_t offset) {
        set(path, &Faults::corruptAt, offset);
    }
    /// Reads beyond this many bytes fail with EIO.
    void failReadsAfter(const QString& path, off_t bytes) { set(path, &Faults::readLimit, bytes); }
    /// Every read of the file first waits this long, as a slow card does.
    void slowReads(const QString& path, int ms) { set(path, &Faults::readDelayMs, ms); }
    /// Opening the file for reading fails with EACCES.
    void failOpens(const QString& path) { set(path, &Faults::openFails, true); }
    /// Giving the file its attributes fails.
    void failAttributes(const QString& path) { set(path, &Faults::attributesFail, true); }
    /// Files and folders can't be created under this folder any more (ENOSPC), as on a full
    /// disk.
    void failCreationsUnder(const QString& folder);
    /// Files whose path holds this text can't be created (ENOSPC).
    void failCreationsNamed(const QByteArray& text);
    /// The medium holds this byte inverted: reads show it once the file's cached pages were
    /// dropped (until it is written again), as a disk that corrupts what it stores.
    void corruptOnMediumAt(const QString& path, off_t offset) {
        set(path, &Faults::mediumCorruptAt, offset);
    }
    /// Flushing the file (or, given a folder, the file system through it) fails with this errno.
    void failFlushes(const QString& path, int error) { set(path, &Faults::flushError, error); }
    /// Flushing any file whose path holds this text fails with this errno.
    void failFlushesNamed(const QByteArray& text, int error);
    /// The file is gone: it can't be looked at or opened (ENOENT).
    void vanish(const QString& path) { set(path, &Faults::vanished, true); }
    /// Links can't be made under this folder (EPERM), as on exFAT.
    void refuseLinksUnder(const QString& folder);
    /// Once this many bytes were read from files under the card's root (0: at once), the card is
    /// gone: nothing under it can be read, listed or looked at, and the root is an empty folder
    /// on another device.
    void pullCardAfter(const QString& root, off_t bytes);

    int openRead(const QByteArray& path) override;
    int openReadWrite(const QByteArray& path) override;
    int makeFolder(const QByteArray& path) override;
    int createNew(const QByteArray& path) override;
    ssize_t read(int fd, void* buffer, size_t size, off_t offset) override;
    ssize_t write(int fd, const void* buffer, size_t size, off_t offset) override;
    int close(int fd) override;
    int status(const QByteArray& path, struct stat* status) override;
    int linkStatus(const QByteArray& path, struct stat* status) override;
    bool applyAttributes(const QByteArray& path, const struct stat& attributes) override;
    int flushRange(int fd, off_t offset, size_t size) override;
    int flushData(int fd) override;
    int flushFileSystem(int fd) override;
    void dropCache(int fd, off_t offset, size_t size) override;
    int listFolder(const QByteArray& path, std::vector<Entry>* entries) override;
    int makeLink(const QByteArray& target, const QByteArray& path) override;

    /// How many times file systems were flushed whole, and reads made of a file.
    int fileSystemFlushes() const;
    int readsOf(const QString& path) const;

  private:
    struct Faults {
        off_t writeLimit = -1;
        off_t stallAt = -1;
        off_t corruptAt = -1;
        off_t mediumCorruptAt = -1;
        off_t readLimit = -1;
        int readDelayMs = 0;
        int flushError = 0;
        bool openFails = false;
        bool attributesFail = false;
        bool vanished = false;
    };
    template <typename T>
    void set(const QString& path, T Faults::*fault, T value) {
        const std::lock_guard lock(mutex_);
        faults_[QFile::encodeName(path)].*fault = value;
    }
    Faults faultsFor(int fd) const;
    Faults faultsForPath(const QByteArray& path) const;  // REQUIRES: mutex_ is held
    QByteArray pathOf(int fd) const;
    int track(int fd, const QByteArray& path);
    /// True (errno ENOENT) when the path is on a pulled card or vanished.
    bool gone(const QByteArray& path) const;
    /// True (errno set) when a flush of fd fails.
    bool refusesFlush(int fd) const;
    /// True (errno set) when nothing may be created at path.
    bool full(const QByteArray& path) const;

    mutable std::mutex mutex_;
    std::map<QByteArray, Faults> faults_;  // guarded by mutex_
    std::map<int, QByteArray> open_;       // guarded by mutex_
    QByteArray fullFolder_;                // guarded by mutex_
    QByteArray linklessFolder_;            // guarded by mutex_
    QByteArray refusedName_;               // guarded by mutex_
    QByteArray unflushableName_;           // guarded by mutex_
    int unflushableError_ = 0;             // guarded by mutex_
    QByteArray cardRoot_;                  // guarded by mutex_
    off_t cardBytesLeft_ = -1;             // guarded by mutex_; 0: pulled
    std::set<QByteArray> dropped_;         // guarded by mutex_: read from the medium now
    std::map<QByteArray, int> reads_;      // guarded by mutex_
    int fileSystemFlushes_ = 0;            // guarded by mutex_
};
