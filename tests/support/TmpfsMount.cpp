#include "TmpfsMount.h"

#include <sys/statvfs.h>

#include <QFile>

#include "SystemTool.h"
#include "TestMount.h"

namespace {

// The mount source names it in the table, so no other tmpfs is ever taken for it.
const QString kSource = QStringLiteral("cardsweep-test-tmpfs");

}  // namespace

TmpfsMount::TmpfsMount(qint64 sizeBytes) {
    if (!folder_.isValid()) {
        fail(QStringLiteral("no temporary folder: %1").arg(folder_.errorString()));
        return;
    }
    const QStringList arguments = {QStringLiteral("-t"),
                                   QStringLiteral("tmpfs"),
                                   QStringLiteral("-o"),
                                   QStringLiteral("size=%1,mode=0700").arg(sizeBytes),
                                   kSource,
                                   folder_.path()};
    const int status = SystemTool::run(QStringLiteral("mount"), arguments);
    mounted_ = TestMount::isMounted(folder_.path(), kSource);
    if (!mounted_)
        fail(
            QStringLiteral("mount %1 exited with status %2").arg(arguments.join(u' ')).arg(status));
}

TmpfsMount::~TmpfsMount() {
    // Its files go with it; the folder is then empty for QTemporaryDir to remove.
    if (mounted_)
        TestMount::unmount(folder_.path(), kSource);
}

bool TmpfsMount::fail(const QString& message) {
    if (error_.isEmpty())
        error_ = message;
    return false;
}

qint64 TmpfsMount::usedBytes() const {
    struct statvfs info {};
    if (!mounted_ || ::statvfs(QFile::encodeName(folder_.path()).constData(), &info) != 0)
        return -1;
    return qint64(info.f_blocks - info.f_bfree) * qint64(info.f_frsize);
}

bool TmpfsMount::leaveRoom(qint64 roomBytes) {
    const qint64 used = usedBytes();
    if (used < 0)
        return fail(QStringLiteral("cannot tell how full %1 is").arg(folder_.path()));
    const QStringList arguments = {QStringLiteral("-o"),
                                   QStringLiteral("remount,size=%1").arg(used + roomBytes),
                                   folder_.path()};
    const int status = SystemTool::run(QStringLiteral("mount"), arguments);
    return status == 0 || fail(QStringLiteral("mount %1 exited with status %2")
                                   .arg(arguments.join(u' '))
                                   .arg(status));
}
