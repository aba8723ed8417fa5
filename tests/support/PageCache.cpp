#include "PageCache.h"

#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <QFile>

#include "UniqueFd.h"

namespace {

QString failure(const char* call) {
    return QStringLiteral("%1: %2").arg(QLatin1String(call),
                                        QString::fromLocal8Bit(strerror(errno)));
}

}  // namespace

// Dirty pages or pages under writeback are not dropped, hence the sync first.
QString PageCache::evict(int fd) {
    if (::fdatasync(fd) != 0)
        return failure("fdatasync");
    const int error = ::posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
    if (error != 0)
        return QStringLiteral("posix_fadvise: %1").arg(QString::fromLocal8Bit(strerror(error)));
    return {};
}

QString PageCache::evict(const QString& path) {
    const UniqueFd fd(::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC));
    return fd.get() < 0 ? failure("open") : evict(fd.get());
}

std::optional<QByteArray> PageCache::readFromMedium(const QString& path) {
    if (!evict(path).isEmpty())
        return std::nullopt;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    return file.readAll();
}
