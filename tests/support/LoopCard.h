#pragma once
// A real exFAT camera card for end-to-end tests: a sparse image file attached to a loop
// device of its own and mounted through FUSE, all undone when it goes. It only ever hands
// a device to a tool after checking that device is backed by its own image.

#include <QString>
#include <QTemporaryDir>
#include <memory>

class LoopDevice;

class LoopCard {
  public:
    static constexpr qint64 kDefaultSize = 64LL * 1024 * 1024;

    /// Why this machine can't make cards (not root, no loop or FUSE device, a missing
    /// tool); empty when it can.
    static QString unavailableReason();

    /// Full path of a command-line tool from PATH or the system folders; empty if none.
    static QString findTool(const QString& name);

    /// Formats, attaches and mounts the card at mountPoint (made if missing); see ok().
    LoopCard(const QString& label, qint64 sizeBytes, const QString& mountPoint);
    /// Unmounts, detaches the loop device and removes the mount point if it made it.
    ~LoopCard();
    LoopCard(const LoopCard&) = delete;
    LoopCard& operator=(const LoopCard&) = delete;

    /// True once the card is formatted, attached and was mounted; error() says otherwise.
    bool ok() const { return error_.isEmpty(); }
    QString error() const { return error_; }

    /// The loop device holding the file system ("/dev/loopN").
    QString device() const { return device_; }
    QString mountPoint() const { return mountPoint_; }

    /// Pulls the card: unmounts, waiting briefly while busy, then detaching it lazily so it
    /// leaves the namespace even with files open. True when it is no longer mounted.
    bool unmount();
    /// Mounts the still attached card again at its mount point.
    bool remount();

  private:
    bool create(const QString& label, qint64 sizeBytes);
    bool attach();
    bool mount();
    bool isOwnLoopDevice() const;
    bool isMountedNow() const;
    void detach();
    bool fail(const QString& message);

    QTemporaryDir imageDir_;
    QString imagePath_;
    QString mountPoint_;
    std::unique_ptr<LoopDevice> loop_;
    QString device_;
    QString error_;
    bool madeMountPoint_ = false;
};
