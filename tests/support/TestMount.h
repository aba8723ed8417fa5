#pragma once
// A file system of its own for a test, mounted at a folder and taken down when it goes, test
// failure or not: a size-limited tmpfs; an image file on a loop device of its own formatted as
// a card (exFAT through FUSE) or a disk (ext4); or a lying medium. A device is only ever
// reported or handed to a tool while the kernel backs it with this very image, so no test can
// reach a real disk through it.
//
// The lying medium (lying_fs.py, a FUSE file system run as a child process) passes everything
// through to a backing folder, except that each write covering byte corruptAt of a file (whose
// path holds `only`, when given) stores that byte inverted. The page cache keeps the true bytes,
// across later opens too, until they are dropped (fdatasync + POSIX_FADV_DONTNEED) or the
// medium is mounted afresh; a file's last, partly written page is not kept, so a lie there
// shows at once. With corruptAt -1 it is an honest, slow medium.
//
// With backingRoomBytes set, an ext4 image is larger than the storage behind it (a tmpfs with
// only that much room left once the disk is made), so writes past that room are accepted into
// the page cache and fail at writeback. What this kernel (6.18, loop over tmpfs) was seen to do
// then: fdatasync() and syncfs() fail with ENOSPC once per open file; the page cache still
// returns the written bytes; after POSIX_FADV_DONTNEED the lost blocks read back as zeros with
// no error; a request that only partly fits loses its tail with no error anywhere, so a file
// must overrun the room by a few MiB to be sure of an error.
//
// Not thread-safe; one test thread owns it.

#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <memory>

class QVTask;

class TestMount {
  public:
    enum class Kind { Tmpfs, Exfat, Ext4, Lying };
    struct Options {
        Kind kind = Kind::Exfat;
        qint64 sizeBytes = 64LL * 1024 * 1024;  // a card's, kCardSize
        QString label;
        /// Ext4 only: room left behind the image once it is made; negative when fully backed.
        qint64 backingRoomBytes = -1;
        /// Lying only: the offset of the byte stored inverted, and the text a lied-about path
        /// holds.
        qint64 corruptAt = -1;
        QString only;
    };
    /// A tmpfs of that size.
    static Options tmpfs(qint64 sizeBytes) {
        Options options;
        options.kind = Kind::Tmpfs;
        options.sizeBytes = sizeBytes;
        return options;
    }
    /// An ext4 disk of that size, with that room behind it (negative: fully backed).
    static Options disk(qint64 sizeBytes, qint64 backingRoomBytes = -1) {
        Options options = tmpfs(sizeBytes);
        options.kind = Kind::Ext4;
        options.backingRoomBytes = backingRoomBytes;
        return options;
    }
    /// A lying medium.
    static Options lying(qint64 corruptAt, const QString& only = QString()) {
        Options options;
        options.kind = Kind::Lying;
        options.corruptAt = corruptAt;
        options.only = only;
        return options;
    }
    static constexpr qint64 kCardSize = 64LL * 1024 * 1024;

    /// Why this machine can't make that kind (not root, no loop or FUSE device, a missing tool
    /// or file system); empty when it can.
    static QString unavailableReason(Kind kind);

    /// Makes and mounts it at mountPoint (made if missing); see ok().
    TestMount(const QString& mountPoint, const Options& options);
    /// Unmounts (lazily if busy), detaches and removes the mount point if it made it.
    ~TestMount();
    TestMount(const TestMount&) = delete;
    TestMount& operator=(const TestMount&) = delete;

    bool ok() const { return error_.isEmpty(); }
    QString error() const { return error_; }
    QString mountPoint() const { return mountPoint_; }
    QString filePath(const QString& name) const { return mountPoint_ + '/' + name; }
    /// "/dev/loopN" while attached to this image; empty for a tmpfs or a lying medium.
    QString device() const;

    /// Pulls it: unmounts, waiting briefly while busy, then lazily, so it leaves the namespace
    /// even with files open. True once it is no longer mounted.
    bool unmount();
    /// Mounts the still attached image (or a fresh tmpfs) again.
    bool remount();
    /// Tmpfs only: resizes it so that exactly roomBytes (rounded up to pages) are left free.
    bool leaveRoom(qint64 roomBytes);

  private:
    bool makeImage();
    bool attach();
    bool mount();
    bool startLying();
    void stopLying();
    QString source() const;
    bool fail(const QString& message);

    Options options_;
    QString mountPoint_;
    QTemporaryDir imageDir_;
    std::unique_ptr<TestMount> backing_;  // outlives the loop device: the image lives in it
    QString imagePath_;
    QString device_;
    std::unique_ptr<QVTask> lying_;
    QString error_;
    bool madeMountPoint_ = false;
};
