#include "TestMount.h"

#include <QThread>

#include "MountTable.h"
#include "SystemTool.h"

bool TestMount::isMounted(const QString& mountPoint, const QString& source) {
    const std::optional<MountEntry> entry = MountTable::entryForMountPoint(mountPoint);
    return entry && (source.isEmpty() || entry->source == source);
}

bool TestMount::waitForMount(const QString& mountPoint, const QString& source, int timeoutMs,
                             const std::function<bool()>& alive) {
    constexpr int kStepMs = 50;
    for (int waited = 0; waited <= timeoutMs; waited += kStepMs) {
        if (isMounted(mountPoint, source))
            return true;
        if (!alive())
            return isMounted(mountPoint, source);
        QThread::msleep(kStepMs);
    }
    return false;
}

bool TestMount::unmount(const QString& mountPoint, const QString& source, const QString& tool,
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

bool TestMount::unmount(const QString& mountPoint, const QString& source) {
    return unmount(mountPoint, source, QStringLiteral("umount"), {}, {QStringLiteral("-l")});
}
