#include "ImmutableFlag.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <QFile>
#include <cerrno>

#include "QVLog.h"
#include "UniqueFd.h"

namespace {

// Where the file system keeps no flags the ioctl answers one of these.
bool meansNoFlags(int error) {
    return error == ENOTTY || error == EOPNOTSUPP || error == EINVAL || error == ENOSYS;
}

struct Opened {
    UniqueFd fd;
    int error = 0;
    bool isSymlink = false;
};

// Only regular files and folders are opened: opening a device or a pipe can have effects.
Opened openItem(const QString& path) {
    Opened result;
    const QByteArray native = QFile::encodeName(path);
    struct stat info {};
    if (lstat(native.constData(), &info) != 0) {
        result.error = errno;
        return result;
    }
    if (S_ISLNK(info.st_mode)) {
        result.isSymlink = true;
        result.error = ELOOP;
        return result;
    }
    if (!S_ISREG(info.st_mode) && !S_ISDIR(info.st_mode)) {
        result.error = ENOTSUP;
        return result;
    }
    result.fd.reset(
        open(native.constData(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC));
    if (!result.fd.valid()) {
        result.error = errno;
    }
    return result;
}

void fail(QString* error, const QString& path, const QString& what, int code) {
    const QString text = QStringLiteral("%1: %2 (%3)").arg(path, what, qt_error_string(code));
    // A caller taking the reason logs it in its own words.
    if (error != nullptr) {
        *error = text;
    } else {
        QVLog::appendLog(u"Immutable flag: %@", text);
    }
}

}  // namespace

std::optional<bool> ImmutableFlag::isSet(const QString& path) {
    const Opened item = openItem(path);
    if (!item.fd.valid()) {
        return std::nullopt;
    }
    int flags = 0;
    if (ioctl(item.fd.get(), FS_IOC_GETFLAGS, &flags) != 0) {
        return std::nullopt;
    }
    return (flags & FS_IMMUTABLE_FL) != 0;
}

bool ImmutableFlag::set(const QString& path, bool on, QString* error) {
    const Opened item = openItem(path);
    if (!item.fd.valid()) {
        if (item.isSymlink && !on) {
            return true;  // a link has no flags of its own to clear
        }
        fail(error, path, QStringLiteral("can't open"), item.error);
        return false;
    }
    int flags = 0;
    if (ioctl(item.fd.get(), FS_IOC_GETFLAGS, &flags) != 0) {
        const int code = errno;
        if (!on && meansNoFlags(code)) {
            return true;
        }
        fail(error, path, QStringLiteral("the file system keeps no flags"), code);
        return false;
    }
    if (((flags & FS_IMMUTABLE_FL) != 0) == on) {
        return true;
    }
    flags = on ? (flags | FS_IMMUTABLE_FL) : (flags & ~FS_IMMUTABLE_FL);
    if (ioctl(item.fd.get(), FS_IOC_SETFLAGS, &flags) != 0) {
        const int code = errno;
        fail(error, path,
             code == EPERM ? QStringLiteral("changing the flag needs CAP_LINUX_IMMUTABLE")
                           : QStringLiteral("can't change the flag"),
             code);
        return false;
    }
    return true;
}
