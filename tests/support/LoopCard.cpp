#include "LoopCard.h"

#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <chrono>
#include <thread>

#include "LoopDevice.h"
#include "MountTable.h"
#include "SystemTool.h"

namespace {

const QStringList kRequiredTools = {"mkfs.exfat", "losetup", "mount.exfat-fuse", "umount"};

QString fuseUnmountTool() {
    const QString tool = LoopCard::findTool(QStringLiteral("fusermount"));
    return tool.isEmpty() ? LoopCard::findTool(QStringLiteral("fusermount3")) : tool;
}

QString describe(const QString& tool, const QStringList& arguments, int status) {
    return QStringLiteral("%1 %2 exited with status %3")
        .arg(tool, arguments.join(QLatin1Char(' ')))
        .arg(status);
}

}  // namespace

QString LoopCard::findTool(const QString& name) {
    return SystemTool::find(name);
}

QString LoopCard::unavailableReason() {
    if (::geteuid() != 0)
        return QStringLiteral("needs root to attach loop devices and mount them");
    for (const QString& node : {QStringLiteral("/dev/loop-control"), QStringLiteral("/dev/fuse")}) {
        if (!QFileInfo::exists(node))
            return QStringLiteral("no %1 on this machine").arg(node);
    }
    for (const QString& tool : kRequiredTools) {
        if (findTool(tool).isEmpty())
            return QStringLiteral("%1 is not installed").arg(tool);
    }
    if (fuseUnmountTool().isEmpty())
        return QStringLiteral("fusermount is not installed");
    return {};
}

LoopCard::LoopCard(const QString& label, qint64 sizeBytes, const QString& mountPoint)
    : mountPoint_(QDir::cleanPath(QFileInfo(mountPoint).absoluteFilePath())) {
    const QString reason = unavailableReason();
    if (!reason.isEmpty()) {
        fail(reason);
        return;
    }
    if (!imageDir_.isValid()) {
        fail(QStringLiteral("no temporary folder for the image: %1").arg(imageDir_.errorString()));
        return;
    }
    imagePath_ = imageDir_.filePath(QStringLiteral("card.img"));
    if (create(label, sizeBytes) && attach())
        mount();
}

LoopCard::~LoopCard() {
    unmount();
    detach();
    if (madeMountPoint_ && !isMountedNow()) {
        QDir().rmdir(mountPoint_);  // only ever an empty folder, never the card's files
    }
}

bool LoopCard::fail(const QString& message) {
    if (error_.isEmpty())
        error_ = message;
    return false;
}

// The file system is made in the image file itself, before any device is involved.
bool LoopCard::create(const QString& label, qint64 sizeBytes) {
    QFile image(imagePath_);
    if (!image.open(QIODevice::WriteOnly) || !image.resize(sizeBytes)) {
        return fail(
            QStringLiteral("cannot make the image %1: %2").arg(imagePath_, image.errorString()));
    }
    image.close();
    QStringList arguments;
    if (!label.isEmpty())
        arguments << QStringLiteral("-n") << label;
    arguments << imagePath_;
    const int status = SystemTool::run(QStringLiteral("mkfs.exfat"), arguments);
    return status == 0 || fail(describe(QStringLiteral("mkfs.exfat"), arguments, status));
}

bool LoopCard::attach() {
    loop_ = std::make_unique<LoopDevice>(imagePath_);
    if (!loop_->ok())
        return fail(loop_->error());
    device_ = loop_->device();
    return true;
}

bool LoopCard::mount() {
    madeMountPoint_ = madeMountPoint_ || !QFileInfo::exists(mountPoint_);
    if (!QDir().mkpath(mountPoint_))
        return fail(QStringLiteral("cannot make the mount point %1").arg(mountPoint_));
    const QStringList arguments = {device_, mountPoint_};
    const int status = SystemTool::run(QStringLiteral("mount.exfat-fuse"), arguments);
    return (status == 0 && isMountedNow()) ||
           fail(describe(QStringLiteral("mount.exfat-fuse"), arguments, status));
}

// A device is only ever handed to a tool while the kernel backs it with this card's image.
bool LoopCard::isOwnLoopDevice() const {
    return loop_ && !loop_->device().isEmpty();
}

bool LoopCard::isMountedNow() const {
    if (device_.isEmpty())
        return false;
    const std::optional<MountEntry> entry = MountTable::entryForMountPoint(mountPoint_);
    return entry && entry->source == device_;
}

bool LoopCard::unmount() {
    using namespace std::chrono_literals;
    // A reader that has just closed its files may keep the mount busy for a moment.
    for (int attempt = 0; attempt < 10 && isMountedNow(); ++attempt) {
        if (attempt > 0)
            std::this_thread::sleep_for(100ms);
        SystemTool::run(QStringLiteral("umount"), {mountPoint_});
    }
    // Still busy: take it out of the namespace now, as pulling the card would.
    if (isMountedNow())
        SystemTool::run(QStringLiteral("umount"), {QStringLiteral("-l"), mountPoint_});
    if (isMountedNow())
        SystemTool::run(fuseUnmountTool(),
                        {QStringLiteral("-u"), QStringLiteral("-z"), mountPoint_});
    return !isMountedNow();
}

bool LoopCard::remount() {
    if (isMountedNow())
        return true;
    if (!isOwnLoopDevice())
        return fail(QStringLiteral("the card is no longer attached"));
    return mount();
}

// A device still held open (a lazily unmounted card) is let go by the kernel once the
// last user closes it.
void LoopCard::detach() {
    loop_.reset();
    device_.clear();
}
