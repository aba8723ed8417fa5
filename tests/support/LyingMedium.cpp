#include "LyingMedium.h"

#include <signal.h>
#include <unistd.h>

#include <QDir>
#include <QFileInfo>
#include <QThread>
#include <exception>

#include "QVTask.h"
#include "QVTaskEx.h"
#include "SystemTool.h"
#include "TestMount.h"

namespace {

// The system's interpreter, where the Debian package puts fusepy; the one on PATH may lack it.
const QString kPython = QStringLiteral("/usr/bin/python3");
const QString kScript = QStringLiteral(CARDSWEEP_LYING_FS_SCRIPT);
// The script mounts with this source, which tells its mount from anything else there.
const QString kSource = QStringLiteral("lying_fs");
constexpr int kMountTimeoutMs = 10'000;

QString fuseUnmountTool() {
    const QString tool = SystemTool::find(QStringLiteral("fusermount"));
    return tool.isEmpty() ? SystemTool::find(QStringLiteral("fusermount3")) : tool;
}

}  // namespace

QString LyingMedium::unavailableReason() {
    if (::geteuid() != 0)
        return QStringLiteral("needs root to mount FUSE file systems");
    if (!QFileInfo::exists(QStringLiteral("/dev/fuse")))
        return QStringLiteral("no /dev/fuse on this machine");
    if (fuseUnmountTool().isEmpty())
        return QStringLiteral("fusermount is not installed");
    if (!QFileInfo(kPython).isExecutable())
        return QStringLiteral("no %1").arg(kPython);
    // The script imports fusepy before it reads its arguments.
    if (QVTaskEx::terminationCodeFromTask(kPython, {kScript, QStringLiteral("--help")}) != 0)
        return QStringLiteral("%1 cannot run %2 (is python3-fusepy installed?)")
            .arg(kPython, kScript);
    return {};
}

LyingMedium::LyingMedium(const QString& mountPoint, qint64 corruptAt, const QString& only)
    : mountPoint_(QDir::cleanPath(QFileInfo(mountPoint).absoluteFilePath())),
      corruptAt_(corruptAt),
      only_(only) {
    const QString reason = unavailableReason();
    if (!reason.isEmpty()) {
        fail(reason);
        return;
    }
    if (!backing_.isValid()) {
        fail(QStringLiteral("no backing folder: %1").arg(backing_.errorString()));
        return;
    }
    madeMountPoint_ = !QFileInfo::exists(mountPoint_);
    if (!QDir().mkpath(mountPoint_)) {
        fail(QStringLiteral("cannot make the mount point %1").arg(mountPoint_));
        return;
    }
    start();
}

LyingMedium::~LyingMedium() {
    stop();
    if (madeMountPoint_ && !TestMount::isMounted(mountPoint_))
        QDir().rmdir(mountPoint_);  // only ever an empty folder
}

bool LyingMedium::fail(const QString& message) {
    if (error_.isEmpty())
        error_ = message;
    return false;
}

bool LyingMedium::remount() {
    stop();
    return start();
}

bool LyingMedium::start() {
    if (TestMount::isMounted(mountPoint_))
        return fail(QStringLiteral("something is already mounted at %1").arg(mountPoint_));
    QStringList arguments = {kScript, backing_.path(), mountPoint_, QStringLiteral("--corrupt-at"),
                             QString::number(corruptAt_)};
    if (!only_.isEmpty())
        arguments << QStringLiteral("--only") << only_;
    // Its complaints, if any, land in the test's own output.
    task_ = std::make_unique<QVTask>(
        QVTask::Setup{kPython, arguments, std::nullopt, QVTask::Channel::NullDevice,
                      QVTask::Channel::NullDevice, QVTask::Channel::Inherit});
    try {
        task_->launch();
    } catch (const std::exception& ex) {
        task_.reset();
        return fail(
            QStringLiteral("cannot start %1: %2").arg(kScript, QString::fromUtf8(ex.what())));
    }
    if (TestMount::waitForMount(mountPoint_, kSource, kMountTimeoutMs,
                                [this] { return task_->isRunning(); }))
        return true;
    const int status = task_->isRunning() ? -1 : task_->terminationStatus();
    stop();
    return fail(QStringLiteral("%1 did not mount %2 (exit status %3)")
                    .arg(kScript, mountPoint_)
                    .arg(status));
}

// Unmounting ends the script's loop, unless a lazy unmount left files open on it; terminate
// and kill are for that and for a process that hangs on. A process that died with its mount
// still there leaves it dead ("transport endpoint is not connected"), so the mount is always
// taken away last.
void LyingMedium::stop() {
    if (!task_)
        return;
    const QString tool = fuseUnmountTool();
    const QStringList lazy = {QStringLiteral("-u"), QStringLiteral("-z")};
    TestMount::unmount(mountPoint_, kSource, tool, {QStringLiteral("-u")}, lazy);
    if (!waitForExit(500)) {
        task_->terminate();
        if (!waitForExit(2000) && task_->isRunning())
            ::kill(task_->processIdentifier(), SIGKILL);
    }
    task_->waitUntilExit();
    task_.reset();
    if (TestMount::isMounted(mountPoint_, kSource))
        SystemTool::run(tool, lazy + QStringList{mountPoint_});
}

bool LyingMedium::waitForExit(int timeoutMs) const {
    constexpr int kStepMs = 20;
    for (int waited = 0; waited < timeoutMs; waited += kStepMs) {
        if (!task_->isRunning())
            return true;
        QThread::msleep(kStepMs);
    }
    return !task_->isRunning();
}
