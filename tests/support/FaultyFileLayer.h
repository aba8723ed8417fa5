#pragma once
// The real file system with faults injected by path (or by the ending of paths): a disk that
// fills up after some bytes, a write that lands corrupted, a card that stops answering part-way
// through a read, a file that can't be opened or given its attributes.

#include <QByteArray>
#include <QFile>
#include <QString>
#include <map>
#include <mutex>

#include "PosixFileLayer.h"

class FaultyFileLayer : public PosixFileLayer {
  public:
    /// Writes to the file beyond this many bytes fail with ENOSPC (the part before still lands).
    void failWritesAfter(const QString& path, off_t bytes) {
        set(path, &Faults::writeLimit, bytes);
    }
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
    /// Files can't be created under this folder any more (ENOSPC), as on a full disk.
    void failCreationsUnder(const QString& folder);

    int openRead(const QByteArray& path) override;
    int openReadWrite(const QByteArray& path) override;
    ssize_t read(int fd, void* buffer, size_t size, off_t offset) override;
    ssize_t write(int fd, const void* buffer, size_t size, off_t offset) override;
    int close(int fd) override;
    bool applyAttributes(const QByteArray& path, const struct stat& attributes) override;

  private:
    struct Faults {
        off_t writeLimit = -1;
        off_t corruptAt = -1;
        off_t readLimit = -1;
        int readDelayMs = 0;
        bool openFails = false;
        bool attributesFail = false;
    };
    template <typename T>
    void set(const QString& path, T Faults::*fault, T value) {
        const std::lock_guard lock(mutex_);
        faults_[QFile::encodeName(path)].*fault = value;
    }
    Faults faultsFor(int fd) const;
    Faults faultsForPath(const QByteArray& path) const;  // REQUIRES: mutex_ is held
    int track(int fd, const QByteArray& path);

    mutable std::mutex mutex_;
    std::map<QByteArray, Faults> faults_;  // guarded by mutex_
    std::map<int, QByteArray> open_;       // guarded by mutex_
    QByteArray fullFolder_;                // guarded by mutex_
};
