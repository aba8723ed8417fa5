#include "TestMount.h"

#include <signal.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QThread>
#include <exception>

#include "MountTable.h"
#include "PosixProcessRunner.h"
#include "QVTask.h"
#include "SystemTool.h"

namespace {

// The mount source names a test's tmpfs in the table, so no other tmpfs is ever taken for it;
// the lying medium's script mounts with a source of its own.
const QString kTmpfsSource = QStringLiteral("cardsweep-test-tmpfs");
const QString kLyingSource = QStringLiteral("lying_fs");
// The system's interpreter, where the Debian package puts fusepy; the one on PATH may lack it.
const QString kPython = QStringLiteral("/usr/bin/python3");
const QString kLyingScript = QStringLiteral(CARDSWEEP_LYING_FS_SCRIPT);

QString fuseUnmountTool() {
    const QString tool = SystemTool::find(QStringLiteral("fusermount"));
    return tool.isEmpty() ? SystemTool::find(QStringLiteral("fusermount3")) : tool;
}

bool kernelKnows(const QByteArray& fsType) {
    QFile filesystems(QStringLiteral("/proc/filesystems"));
    if (!filesystems.open(QIODevice::ReadOnly))
        return false;
    for (const QByteArray& line : filesystems.readAll().split('\n')) {
        if (line.trimmed().endsWith(fsType))
            return true;
    }
    return false;
}

// What each kind needs besides root: device nodes, tools, the kernel's file system.
struct Needs {
    QStringList nodes;
    QStringList tools;
    QByteArray fsType;
};

Needs needsOf(TestMount::Kind kind) {
    const QStringList loop = {"losetup", "mount", "umount"};
    switch (kind) {
        case TestMount::Kind::Tmpfs:
            return {{}, {"mount", "umount"}, "tmpfs"};
        case TestMount::Kind::Exfat:
            return {{"/dev/loop-control", "/dev/fuse"},
                    loop + QStringList{"mkfs.exfat", "mount.exfat-fuse"},
                    "fuse"};
        case TestMount::Kind::Ext4:
            return {{"/dev/loop-control"}, loop + QStringList{"mkfs.ext4"}, "ext4"};
        case TestMount::Kind::Lying:
            return {{"/dev/fuse", kPython}, {}, "fuse"};
    }
    return {};
}

QString run(const QString& tool, const QStringList& arguments) {
    const int status = SystemTool::run(tool, arguments);
    return status == 0 ? QString()
                       : QStringLiteral("%1 %2 exited with status %3")
                             .arg(tool, arguments.join(u' '))
                             .arg(status);
}

// The image file the kernel backs a loop device with, from sysfs.
QString backingFileOf(const QString& device) {
    QFile backing(
        QStringLiteral("/sys/block/%1/loop/backing_file").arg(QFileInfo(device).fileName()));
    return backing.open(QIODevice::ReadOnly) ? QFile::decodeName(backing.readAll().trimmed())
                                             : QString();
}

// True while the topmost mount at mountPoint exists (and has that source, when given).
bool isMounted(const QString& mountPoint, const QString& source = QString()) {
    const std::optional<MountEntry> entry = MountTable::entryForMountPoint(mountPoint);
    return entry && (source.isEmpty() || entry->source == source);
}

// Runs tool with arguments + mountPoint, retrying for about a second while busy, then with
// lazyArguments. True once nothing with that source is mounted there.
bool unmountFrom(const QString& mountPoint, const QString& source, const QString& tool,
                 const QStringList& arguments, const QStringList& lazyArguments) {
    // A reader that has just closed its files may keep the mount busy for a moment.
    for (int attempt = 0; attempt < 10 && isMounted(mountPoint, source); ++attempt) {
        if (attempt > 0)
            QThread::msleep(100);
        SystemTool::run(tool, arguments + QStringList{mountPoint});
    }
    if (isMounted(mountPoint, source))
        SystemTool::run(tool, lazyArguments + QStringList{mountPoint});
    return !isMounted(mountPoint, source);
}

}  // namespace

QString TestMount::unavailableReason(Kind kind) {
    if (::geteuid() != 0)
        return QStringLiteral("needs root to mount file systems");
    const Needs needs = needsOf(kind);
    for (const QString& node : needs.nodes) {
        if (!QFileInfo::exists(node))
            return QStringLiteral("no %1 on this machine").arg(node);
    }
    for (const QString& tool : needs.tools) {
        if (SystemTool::find(tool).isEmpty())
            return QStringLiteral("%1 is not installed").arg(tool);
    }
    if ((kind == Kind::Exfat || kind == Kind::Lying) && fuseUnmountTool().isEmpty())
        return QStringLiteral("fusermount is not installed");
    if (!kernelKnows(needs.fsType))
        return QStringLiteral("the kernel has no %1").arg(QString::fromLatin1(needs.fsType));
    // The script imports fusepy before it reads its arguments.
    if (kind == Kind::Lying &&
        PosixProcessRunner().run(kPython, {kLyingScript, QStringLiteral("--help")}).exitCode != 0)
        return QStringLiteral("%1 cannot run %2 (is python3-fusepy installed?)")
            .arg(kPython, kLyingScript);
    return {};
}

TestMount::TestMount(const QString& mountPoint, const Options& options)
    : options_(options), mountPoint_(QDir::cleanPath(QFileInfo(mountPoint).absoluteFilePath())) {
    if (const QString reason = unavailableReason(options.kind); !reason.isEmpty()) {
        fail(reason);
        return;
    }
    if (options.kind != Kind::Tmpfs && options.kind != Kind::Lying && !(makeImage() && attach()))
        return;
    if (!mount())
        return;
    // Only now is everything the file system needs written, so the room left is for data.
    if (backing_ && !backing_->leaveRoom(options.backingRoomBytes))
        fail(backing_->error());
}

TestMount::~TestMount() {
    unmount();
    // A device still held open (a lazily unmounted card) is let go once its last user goes.
    if (const QString loop = device(); !loop.isEmpty())
        SystemTool::run(QStringLiteral("losetup"), {QStringLiteral("-d"), loop});
    backing_.reset();
    if (madeMountPoint_ && !isMounted(mountPoint_))
        QDir().rmdir(mountPoint_);  // only ever an empty folder
}

bool TestMount::fail(const QString& message) {
    if (error_.isEmpty())
        error_ = message;
    return false;
}

QString TestMount::device() const {
    return !device_.isEmpty() && backingFileOf(device_) == imagePath_ ? device_ : QString();
}

QString TestMount::source() const {
    switch (options_.kind) {
        case Kind::Tmpfs:
            return kTmpfsSource;
        case Kind::Lying:
            return kLyingSource;
        default:
            return device();
    }
}

// The file system is made in the image file itself, before any device is involved. Ext4 writes
// its inode tables and journal now, so a thin backing store's room is not eaten later, and
// reserves nothing for root, so root's writes fail at the size the disk shows as free.
bool TestMount::makeImage() {
    QString folder = imageDir_.path();
    if (!imageDir_.isValid())
        return fail(QStringLiteral("no temporary folder: %1").arg(imageDir_.errorString()));
    if (options_.kind == Kind::Ext4 && options_.backingRoomBytes >= 0) {
        // Room for the sparse image's metadata blocks, which mkfs writes in full.
        backing_ = std::make_unique<TestMount>(imageDir_.filePath(QStringLiteral("backing")),
                                               tmpfs(options_.sizeBytes + 1024 * 1024));
        if (!backing_->ok())
            return fail(backing_->error());
        folder = backing_->mountPoint();
    }
    imagePath_ = QFileInfo(folder + QStringLiteral("/disk.img")).absoluteFilePath();
    QFile image(imagePath_);
    if (!image.open(QIODevice::WriteOnly) || !image.resize(options_.sizeBytes))
        return fail(QStringLiteral("cannot make %1: %2").arg(imagePath_, image.errorString()));
    image.close();
    imagePath_ = QFileInfo(imagePath_).canonicalFilePath();
    QStringList arguments;
    QString tool;
    switch (options_.kind) {
        case Kind::Exfat:
            tool = QStringLiteral("mkfs.exfat");
            if (!options_.label.isEmpty())
                arguments << QStringLiteral("-n") << options_.label;
            break;
        default:
            tool = QStringLiteral("mkfs.ext4");
            arguments << QStringLiteral("-q") << QStringLiteral("-F") << QStringLiteral("-m")
                      << QStringLiteral("0") << QStringLiteral("-E")
                      << QStringLiteral("lazy_itable_init=0,lazy_journal_init=0");
            if (!options_.label.isEmpty())
                arguments << QStringLiteral("-L") << options_.label;
            break;
    }
    const QString failure = run(tool, arguments << imagePath_);
    return failure.isEmpty() || fail(failure);
}

bool TestMount::attach() {
    PosixProcessRunner runner;
    const ProcessResult result =
        runner.run(QStringLiteral("losetup"),
                   {QStringLiteral("--find"), QStringLiteral("--show"), imagePath_});
    const QString device = QString::fromUtf8(result.output).trimmed();
    static const QRegularExpression loopName(QStringLiteral("^/dev/loop[0-9]+$"));
    if (!loopName.match(device).hasMatch())
        return fail(QStringLiteral("losetup did not attach %1: %2").arg(imagePath_, device));
    device_ = device;
    return !this->device().isEmpty() ||
           fail(QStringLiteral("%1 is not backed by %2").arg(device, imagePath_));
}

bool TestMount::mount() {
    madeMountPoint_ = madeMountPoint_ || !QFileInfo::exists(mountPoint_);
    if (!QDir().mkpath(mountPoint_))
        return fail(QStringLiteral("cannot make the mount point %1").arg(mountPoint_));
    if (options_.kind == Kind::Lying)
        return startLying();
    const QString from = source();
    if (from.isEmpty())
        return fail(QStringLiteral("%1 is no longer attached").arg(imagePath_));
    QStringList options;
    QString tool = QStringLiteral("mount");
    QStringList arguments;
    switch (options_.kind) {
        case Kind::Tmpfs:
            options << QStringLiteral("size=%1,mode=0700").arg(options_.sizeBytes);
            arguments << QStringLiteral("-t") << QStringLiteral("tmpfs");
            break;
        case Kind::Exfat:
            tool = QStringLiteral("mount.exfat-fuse");
            break;
        default:
            arguments << QStringLiteral("-t") << QStringLiteral("ext4");
            break;
    }
    if (!options.isEmpty())
        arguments << QStringLiteral("-o") << options.join(u',');
    const QString failure = run(tool, arguments << from << mountPoint_);
    if (!failure.isEmpty())
        return fail(failure);
    return isMounted(mountPoint_, from) ||
           fail(QStringLiteral("%1 is not mounted at %2").arg(from, mountPoint_));
}

bool TestMount::unmount() {
    if (options_.kind == Kind::Lying) {
        stopLying();
        return !isMounted(mountPoint_, kLyingSource);
    }
    const QString from = source();
    if (from.isEmpty() || !isMounted(mountPoint_, from))
        return true;
    if (unmountFrom(mountPoint_, from, QStringLiteral("umount"), {}, {QStringLiteral("-l")}))
        return true;
    if (options_.kind == Kind::Exfat)
        SystemTool::run(fuseUnmountTool(),
                        {QStringLiteral("-u"), QStringLiteral("-z"), mountPoint_});
    return !isMounted(mountPoint_, from);
}

bool TestMount::remount() {
    if (options_.kind == Kind::Lying)
        unmount();  // so that nothing is read from the cache
    return isMounted(mountPoint_, source()) || mount();
}

bool TestMount::startLying() {
    if (isMounted(mountPoint_))
        return fail(QStringLiteral("something is already mounted at %1").arg(mountPoint_));
    QStringList arguments = {kLyingScript, imageDir_.path(), mountPoint_,
                             QStringLiteral("--corrupt-at"), QString::number(options_.corruptAt)};
    if (!options_.only.isEmpty())
        arguments << QStringLiteral("--only") << options_.only;
    // Its complaints land in the test's output.
    lying_ = std::make_unique<QVTask>(
        QVTask::Setup{kPython, arguments, std::nullopt, QVTask::Channel::NullDevice,
                      QVTask::Channel::NullDevice, QVTask::Channel::Inherit});
    try {
        lying_->launch();
    } catch (const std::exception& ex) {
        lying_.reset();
        return fail(
            QStringLiteral("cannot start %1: %2").arg(kLyingScript, QString::fromUtf8(ex.what())));
    }
    // It mounts within moments, or dies saying why.
    for (int step = 0; step < 200 && !isMounted(mountPoint_, kLyingSource); ++step) {
        if (!lying_->isRunning())
            break;
        QThread::msleep(50);
    }
    if (isMounted(mountPoint_, kLyingSource))
        return true;
    stopLying();
    return fail(QStringLiteral("%1 did not mount %2").arg(kLyingScript, mountPoint_));
}

// Unmounting ends the script, unless a lazy unmount left files open on it; terminate and kill
// are for that and for a script that hangs on. A script that died with its mount still there
// leaves it dead ("transport endpoint is not connected"), so the mount is taken away last.
void TestMount::stopLying() {
    if (!lying_)
        return;
    const QStringList lazy = {QStringLiteral("-u"), QStringLiteral("-z")};
    unmountFrom(mountPoint_, kLyingSource, fuseUnmountTool(), {QStringLiteral("-u")}, lazy);
    for (int step = 0; step < 125 && lying_->isRunning(); ++step) {
        if (step == 25)
            lying_->terminate();
        QThread::msleep(20);
    }
    if (lying_->isRunning())
        ::kill(lying_->processIdentifier(), SIGKILL);
    lying_->waitUntilExit();
    lying_.reset();
    if (isMounted(mountPoint_, kLyingSource))
        SystemTool::run(fuseUnmountTool(), lazy + QStringList{mountPoint_});
}

bool TestMount::leaveRoom(qint64 roomBytes) {
    struct statvfs info {};
    if (options_.kind != Kind::Tmpfs ||
        ::statvfs(QFile::encodeName(mountPoint_).constData(), &info) != 0)
        return fail(QStringLiteral("cannot tell how full %1 is").arg(mountPoint_));
    const qint64 used = qint64(info.f_blocks - info.f_bfree) * qint64(info.f_frsize);
    const QString failure =
        run(QStringLiteral("mount"),
            {QStringLiteral("-o"), QStringLiteral("remount,size=%1").arg(used + roomBytes),
             mountPoint_});
    return failure.isEmpty() || fail(failure);
}
