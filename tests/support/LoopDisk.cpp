#include "LoopDisk.h"

#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <algorithm>

#include "LoopDevice.h"
#include "SystemTool.h"
#include "TestMount.h"
#include "TmpfsMount.h"

namespace {

const QStringList kRequiredTools = {"mkfs.ext4", "losetup", "mount", "umount"};

bool kernelKnows(const QByteArray& fsType) {
    QFile filesystems(QStringLiteral("/proc/filesystems"));
    if (!filesystems.open(QIODevice::ReadOnly))
        return false;
    const QList<QByteArray> lines = filesystems.readAll().split('\n');
    return std::any_of(lines.begin(), lines.end(),
                       [&](const QByteArray& line) { return line.trimmed().endsWith(fsType); });
}

QString describe(const QString& tool, const QStringList& arguments, int status) {
    return QStringLiteral("%1 %2 exited with status %3")
        .arg(tool, arguments.join(QLatin1Char(' ')))
        .arg(status);
}

}  // namespace

QString LoopDisk::unavailableReason() {
    if (::geteuid() != 0)
        return QStringLiteral("needs root to attach loop devices and mount them");
    if (!QFileInfo::exists(QStringLiteral("/dev/loop-control")))
        return QStringLiteral("no /dev/loop-control on this machine");
    for (const QString& tool : kRequiredTools) {
        if (SystemTool::find(tool).isEmpty())
            return QStringLiteral("%1 is not installed").arg(tool);
    }
    for (const QByteArray& fsType : {QByteArrayLiteral("ext4"), QByteArrayLiteral("tmpfs")}) {
        if (!kernelKnows(fsType))
            return QStringLiteral("the kernel has no %1").arg(QString::fromLatin1(fsType));
    }
    return {};
}

LoopDisk::LoopDisk(const QString& mountPoint, const Options& options)
    : mountPoint_(QDir::cleanPath(QFileInfo(mountPoint).absoluteFilePath())) {
    const QString reason = unavailableReason();
    if (!reason.isEmpty()) {
        fail(reason);
        return;
    }
    if (!makeImage(options) || !format())
        return;
    loop_ = std::make_unique<LoopDevice>(imagePath_);
    if (!loop_->ok()) {
        fail(loop_->error());
        return;
    }
    if (!mount())
        return;
    // Only now is everything the file system needs written, so the room left is what data
    // can still use.
    if (backing_ && !backing_->leaveRoom(options.backingRoomBytes))
        fail(backing_->error());
}

LoopDisk::~LoopDisk() {
    unmount();
    loop_.reset();
    backing_.reset();
    if (madeMountPoint_ && !TestMount::isMounted(mountPoint_))
        QDir().rmdir(mountPoint_);  // only ever an empty folder
}

bool LoopDisk::fail(const QString& message) {
    if (error_.isEmpty())
        error_ = message;
    return false;
}

QString LoopDisk::device() const {
    return loop_ ? loop_->device() : QString();
}

bool LoopDisk::makeImage(const Options& options) {
    if (options.backingRoomBytes >= 0) {
        // Room for the sparse image's metadata blocks, which mkfs writes in full below.
        backing_ = std::make_unique<TmpfsMount>(options.sizeBytes + 1024 * 1024);
        if (!backing_->ok())
            return fail(backing_->error());
        imagePath_ = backing_->filePath(QStringLiteral("disk.img"));
    } else {
        if (!imageDir_.isValid())
            return fail(QStringLiteral("no temporary folder: %1").arg(imageDir_.errorString()));
        imagePath_ = imageDir_.filePath(QStringLiteral("disk.img"));
    }
    QFile image(imagePath_);
    if (!image.open(QIODevice::WriteOnly) || !image.resize(options.sizeBytes))
        return fail(QStringLiteral("cannot make %1: %2").arg(imagePath_, image.errorString()));
    return true;
}

// The file system is made in the image file itself, before any device is involved. Inode
// tables and journal are written now rather than by a background thread after mounting, so
// the backing store's room is not eaten later; no blocks are reserved for root, so root's
// writes fail at the size the disk shows as free.
bool LoopDisk::format() {
    const QStringList arguments = {QStringLiteral("-q"),
                                   QStringLiteral("-F"),
                                   QStringLiteral("-m"),
                                   QStringLiteral("0"),
                                   QStringLiteral("-E"),
                                   QStringLiteral("lazy_itable_init=0,lazy_journal_init=0"),
                                   imagePath_};
    const int status = SystemTool::run(QStringLiteral("mkfs.ext4"), arguments);
    return status == 0 || fail(describe(QStringLiteral("mkfs.ext4"), arguments, status));
}

bool LoopDisk::mount() {
    const QString source = device();
    if (source.isEmpty())
        return fail(QStringLiteral("%1 is no longer attached").arg(imagePath_));
    madeMountPoint_ = madeMountPoint_ || !QFileInfo::exists(mountPoint_);
    if (!QDir().mkpath(mountPoint_))
        return fail(QStringLiteral("cannot make the mount point %1").arg(mountPoint_));
    const QStringList arguments = {QStringLiteral("-t"), QStringLiteral("ext4"), source,
                                   mountPoint_};
    const int status = SystemTool::run(QStringLiteral("mount"), arguments);
    return (status == 0 && isMountedNow()) ||
           fail(describe(QStringLiteral("mount"), arguments, status));
}

bool LoopDisk::isMountedNow() const {
    const QString source = device();
    return !source.isEmpty() && TestMount::isMounted(mountPoint_, source);
}

bool LoopDisk::unmount() {
    const QString source = device();
    return source.isEmpty() || TestMount::unmount(mountPoint_, source);
}

bool LoopDisk::remount() {
    return isMountedNow() || mount();
}
