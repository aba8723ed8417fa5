#pragma once
// One image file attached to a loop device of its own, detached when it goes. A device is
// only ever reported, or handed to a tool, after checking that the kernel backs it with this
// very image, so no test can reach a real disk through it.
//
// Not thread-safe; one test thread owns it.

#include <QString>

class LoopDevice {
  public:
    /// Attaches imagePath (an existing file) to the first free loop device; see ok().
    explicit LoopDevice(const QString& imagePath);
    /// Detaches; a device still open (a lazily unmounted file system) is let go by the kernel
    /// once its last user closes it.
    ~LoopDevice();
    LoopDevice(const LoopDevice&) = delete;
    LoopDevice& operator=(const LoopDevice&) = delete;

    bool ok() const { return error_.isEmpty(); }
    QString error() const { return error_; }

    /// "/dev/loopN" while it is attached to this image; empty otherwise.
    QString device() const;

  private:
    bool isOwn(const QString& device) const;

    QString imagePath_;
    QString device_;
    QString error_;
};
