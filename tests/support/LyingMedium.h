#pragma once
// A medium that stores something other than what was written, so a test can prove a copy was
// read back from its medium: lying_fs.py, a FUSE file system run as a child process, passes
// everything through to a backing folder except that each write covering byte corruptAt of a
// file stores that byte inverted. The page cache keeps the true bytes, across later opens too,
// until they are dropped (fdatasync + POSIX_FADV_DONTNEED) or the medium is mounted afresh.
// A file whose last page is only partly written is the exception: that page is not kept,
// so a lie in it shows at once. Unmounted, and its process ended, when it goes.
//
// Not thread-safe; one test thread owns it.

#include <QString>
#include <QTemporaryDir>
#include <memory>

class QVTask;

class LyingMedium {
  public:
    /// Why this machine can't run it (not root, no /dev/fuse, no /usr/bin/python3 able to
    /// import fusepy, no fusermount); empty when it can.
    static QString unavailableReason();

    /// Mounts the medium at mountPoint (made if missing) over a fresh backing folder and waits
    /// up to 10 s for it; only files whose path holds `only`, when given, are lied about.
    LyingMedium(const QString& mountPoint, qint64 corruptAt, const QString& only = QString());
    /// Unmounts (lazily if busy), ends the process and removes the mount point if it made it.
    ~LyingMedium();
    LyingMedium(const LyingMedium&) = delete;
    LyingMedium& operator=(const LyingMedium&) = delete;

    bool ok() const { return error_.isEmpty(); }
    QString error() const { return error_; }

    QString mountPoint() const { return mountPoint_; }
    /// The folder behind the mount: what the medium really stored.
    QString backingPath() const { return backing_.path(); }

    /// Unmounts and mounts again over the same backing folder, so nothing is read from cache.
    bool remount();

  private:
    bool start();
    void stop();
    bool waitForExit(int timeoutMs) const;
    bool fail(const QString& message);

    QTemporaryDir backing_;
    QString mountPoint_;
    qint64 corruptAt_;
    QString only_;
    std::unique_ptr<QVTask> task_;
    QString error_;
    bool madeMountPoint_ = false;
};
