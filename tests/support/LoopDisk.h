#pragma once
// A small ext4 disk for end-to-end tests: an image file on a loop device of its own, mounted
// through the kernel, so a destination fills up for real. With backingRoomBytes set, the image
// is larger than the storage behind it (a tmpfs with only that much room left once the disk
// is made), so writes past that room are accepted into the page cache and fail at writeback.
// Everything is undone when it goes, test failure or not.
//
// What this kernel (6.18, loop over tmpfs) was seen to do once the backing store runs out:
// - fdatasync() and syncfs() fail with ENOSPC, the backing file's error passed on by the loop
//   driver; each reports it once per open file, a second call returns 0.
// - The page cache still holds the written bytes: a plain re-read returns them, no error.
// - After POSIX_FADV_DONTNEED, or with O_DIRECT, the lost blocks read back as zeros (their
//   extents stay unwritten), again with no error.
// - A request that only partly fits loses its tail with no error anywhere: fdatasync()
//   returns 0 and the kernel logs nothing (the loop driver takes a short write as done).
//   So a file must overrun the room by a few MiB, not by a few pages, to be sure of an error.
//
// Not thread-safe; one test thread owns it.

#include <QString>
#include <QTemporaryDir>
#include <memory>

class LoopDevice;
class TmpfsMount;

class LoopDisk {
  public:
    struct Options {
        /// Size of the file system (ext4 on a small disk uses 1 KiB blocks).
        qint64 sizeBytes = 32LL * 1024 * 1024;
        /// Room left in the backing store once the disk is formatted and mounted; negative
        /// for a fully backed image.
        qint64 backingRoomBytes = -1;
    };

    /// Why this machine can't make these disks; empty when it can.
    static QString unavailableReason();

    /// Formats, attaches and mounts the disk at mountPoint (made if missing); see ok().
    LoopDisk(const QString& mountPoint, const Options& options);
    /// Unmounts (lazily if busy), detaches, unmounts the backing store and removes the mount
    /// point if it made it.
    ~LoopDisk();
    LoopDisk(const LoopDisk&) = delete;
    LoopDisk& operator=(const LoopDisk&) = delete;

    bool ok() const { return error_.isEmpty(); }
    QString error() const { return error_; }

    /// "/dev/loopN" while attached.
    QString device() const;
    QString mountPoint() const { return mountPoint_; }

    /// Unmounts, waiting briefly while busy, then lazily. True once it is no longer mounted.
    bool unmount();
    /// Mounts the still attached disk again, so what is read comes from the disk.
    bool remount();

  private:
    bool makeImage(const Options& options);
    bool format();
    bool mount();
    bool isMountedNow() const;
    bool fail(const QString& message);

    QTemporaryDir imageDir_;
    std::unique_ptr<TmpfsMount> backing_;  // outlives loop_: the image lives in it
    std::unique_ptr<LoopDevice> loop_;
    QString imagePath_;
    QString mountPoint_;
    QString error_;
    bool madeMountPoint_ = false;
};
