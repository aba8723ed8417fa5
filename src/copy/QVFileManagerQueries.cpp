// Queries, attributes, waits and digests of QVFileManager.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <array>
#include <cerrno>
#include <vector>

#include "Clock.h"
#include "CopyEngine.h"
#include "DiskInformation.h"
#include "ImmutableFlag.h"
#include "QVAuthorization.h"
#include "QVFileManager.h"
#include "QVLocalPaths.h"
#include "QVLog.h"
#include "SystemLog.h"

namespace {

QByteArray encoded(const QString& path) {
    return QFile::encodeName(path);
}

bool anythingAt(FileLayer& files, const QString& path) {
    return files.exists(encoded(path));
}

// Linux keeps user attributes in the "user." namespace.
QByteArray attributeName(const QString& key) {
    static const QStringList namespaces = {QStringLiteral("user."), QStringLiteral("trusted."),
                                           QStringLiteral("security."), QStringLiteral("system.")};
    for (const QString& prefix : namespaces) {
        if (key.startsWith(prefix))
            return key.toUtf8();
    }
    return "user." + key.toUtf8();
}

constexpr int kFinderInfoSize = 32;
constexpr int kFinderFlagsOffset = 8;

std::optional<std::array<unsigned char, kFinderInfoSize>> readFinderInfo(const QString& path) {
    std::array<unsigned char, kFinderInfoSize> info{};
    for (const char* name : {"user.com.apple.FinderInfo", "com.apple.FinderInfo"}) {
        if (::lgetxattr(encoded(path).constData(), name, info.data(), info.size()) >= 10)
            return info;
    }
    return std::nullopt;
}

QString joinPath(const QString& base, const QString& component) {
    if (base.isEmpty())
        return component;
    if (base.endsWith(u'/'))
        return base + component;
    return base + u'/' + component;
}

// "*" for any run of characters, "?" for one; nothing else is special.
bool wildcardMatches(QStringView pattern, QStringView name) {
    qsizetype p = 0, n = 0, starP = -1, starN = 0;
    while (n < name.size()) {
        if (p < pattern.size() && (pattern[p] == u'?' || pattern[p] == name[n])) {
            ++p;
            ++n;
        } else if (p < pattern.size() && pattern[p] == u'*') {
            starP = p++;
            starN = n;
        } else if (starP >= 0) {
            p = starP + 1;
            n = ++starN;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == u'*')
        ++p;
    return p == pattern.size();
}

QStringList pathComponents(const QString& pattern) {
    QStringList components;
    if (pattern.startsWith(u'/'))
        components << QStringLiteral("/");
    components += pattern.split(u'/', Qt::SkipEmptyParts);
    return components;
}

}  // namespace

std::optional<PropertyList> QVFileManager::infoForDiskAtMountpoint(const QString& mountPoint) {
    if (disks_ == nullptr)
        return std::nullopt;
    return disks_->forMountPoint(mountPoint);
}

QString QVFileManager::formatFileSize(double size) {
    constexpr double KB = 1024.0, MB = KB * 1024.0, GB = MB * 1024.0;
    if (size < KB)
        return QString::asprintf("%0.0f B", size);
    if (size < MB)
        return QString::asprintf("%0.2f KB", size / KB);
    if (size < GB)
        return QString::asprintf("%0.2f MB", size / MB);
    return QString::asprintf("%0.2f GB", size / GB);
}

QString QVFileManager::validateFilename(const QString& name) {
    QString valid = name;
    while (valid.startsWith(u'.'))
        valid.remove(0, 1);
    valid = valid.trimmed();
    valid.remove(u'/');
    valid.remove(u':');
    return valid;
}

QString QVFileManager::uniqueFilename(const QString& path) {
    if (!anythingAt(files_, path))
        return path;
    const QString folder = QFileInfo(path).path();
    const QString name = QFileInfo(path).fileName();
    const qsizetype dot = name.lastIndexOf(u'.');
    const bool hasExtension = dot > 0 && dot < name.size() - 1;
    const QString stem = hasExtension ? name.left(dot) : name;
    const QString extension = hasExtension ? name.mid(dot) : QString();
    for (long number = 2;; ++number) {
        const QString candidate =
            joinPath(folder, QStringLiteral("%1 %2%3").arg(stem).arg(number).arg(extension));
        if (!anythingAt(files_, candidate))
            return candidate;
    }
}

QStringList QVFileManager::filesMatchingWildcardPath(const QString& pattern,
                                                     const QString& basePath, bool searchSubdirs) {
    static_cast<void>(searchSubdirs);
    if (!pattern.contains(u'*'))
        return {joinPath(basePath, pattern)};
    const QString start = basePath.isEmpty() ? QStringLiteral("/") : basePath;
    QStringList candidates{start};
    for (const QString& component : pathComponents(pattern)) {
        QStringList next;
        if (component == QLatin1String("/")) {
            next << start;
        } else if (component.contains(u'*')) {
            for (const QString& folder : candidates) {
                const QStringList names = QDir(folder).entryList(
                    QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDir::Name);
                for (const QString& name : names) {
                    const QString entry = joinPath(folder, name);
                    if (wildcardMatches(component, name) && anythingAt(files_, entry))
                        next << entry;
                }
            }
        } else {
            for (const QString& folder : candidates) {
                const QString entry = joinPath(folder, component);
                if (anythingAt(files_, entry))
                    next << entry;
            }
        }
        candidates = next;
    }
    return candidates;
}

QString QVFileManager::decodeWildcardPath(const QString& pattern, const QString& basePath) {
    const QStringList matches = filesMatchingWildcardPath(pattern, basePath);
    // Matches already begin with the base path; joining it again would double it.
    return matches.isEmpty() ? QString() : matches.first();
}

void QVFileManager::waitForFileCreation(const QString& path, double timeout) {
    struct stat status {};
    if (files_.status(encoded(path), &status) == 0 && status.st_size > 0)
        return;
    // Measured from this call, so only a time-out of 0 has passed: one short pause, no loop.
    if (timeout > 0) {
        QVLog::appendLog(u"File %@ is not yet created. Waiting...", path);
        ::usleep(500);
    }
}

namespace {

bool modifiedWithin(FileLayer& files, const Clock& clock, const QString& path, double seconds) {
    struct stat status {};
    if (files.status(encoded(path), &status) != 0)
        return false;
    const QDateTime modified = QDateTime::fromSecsSinceEpoch(status.st_mtim.tv_sec)
                                   .addMSecs(status.st_mtim.tv_nsec / 1000000);
    return modified.msecsTo(clock.now()) < qint64(seconds * 1000.0);
}

}  // namespace

void QVFileManager::waitForFileWrites(const Clock& clock, const QString& path,
                                      const QString& lockFile) {
    const bool locked =
        !lockFile.isEmpty() && anythingAt(files_, joinPath(QFileInfo(path).path(), lockFile));
    if (!modifiedWithin(files_, clock, path, 4.0) && !locked)
        return;
    QVLog::appendLog(u"File %@ is currently being written to. Waiting...", path);
    while (modifiedWithin(files_, clock, path, 4.0))
        ::usleep(500);
    QVLog::appendLog(u"File %@ finished writing.", path);
}

// ---- Attributes

bool QVFileManager::lockFile(const QString& path) {
    QString error;
    if (ImmutableFlag::set(path, true, &error))
        return true;
    QVLog::fastAppendLog(u"Unable to unlock file %@: %@", path, error);
    return false;
}

bool QVFileManager::unlockFile(const QString& path) {
    if (ImmutableFlag::isSet(path) != true)
        return true;
    QString error;
    if (ImmutableFlag::set(path, false, &error))
        return true;
    QVLog::fastAppendLog(u"Unable to unlock file %@: %@", path, error);
    return false;
}

namespace {

template <typename Apply>
void applyRecursively(FileLayer& files, const QString& folder, const Apply& apply) {
    const QStringList names = QDir(folder).entryList(QDir::AllEntries | QDir::Hidden |
                                                     QDir::System | QDir::NoDotAndDotDot);
    for (const QString& name : names) {
        const QString entry = folder + u'/' + name;
        struct stat status {};
        if (files.linkStatus(encoded(entry), &status) != 0 || S_ISLNK(status.st_mode))
            continue;
        apply(entry);
        if (S_ISDIR(status.st_mode))
            applyRecursively(files, entry, apply);
    }
}

}  // namespace

void QVFileManager::lockFolder(const QString& path) {
    applyRecursively(files_, path, [this](const QString& entry) { lockFile(entry); });
}

void QVFileManager::unlockFolder(const QString& path) {
    applyRecursively(files_, path, [this](const QString& entry) { unlockFile(entry); });
}

bool QVFileManager::setPosixPermissions(unsigned permissions, const QString& path) {
    if (::chmod(encoded(path).constData(), mode_t(permissions & 07777)) == 0)
        return true;
    QVLog::appendLog(u"Error setting permissions for file %@: %@", path,
                     QString::fromLocal8Bit(std::strerror(errno)));
    return false;
}

bool QVFileManager::setModificationDate(const QDateTime& date, const QString& path) {
    const qint64 msecs = date.toMSecsSinceEpoch();
    const timespec times[2] = {{0, UTIME_OMIT},
                               {time_t(msecs / 1000), long(msecs % 1000) * 1000000}};
    return ::utimensat(AT_FDCWD, encoded(path).constData(), times, 0) == 0;
}

bool QVFileManager::createEmptyFile(const QString& path) {
    const QString temporary = QVLocalPaths::tempFile();
    QFile file(temporary);
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly))
        return false;
    file.close();
    if (moveFile(temporary, path))
        return true;
    QFile::remove(temporary);
    return false;
}

void QVFileManager::touchFile(const QString& path, bool setCreationDate) {
    // Linux has no settable creation time; the modification time is what touch gives us.
    static_cast<void>(setCreationDate);
    if (!files_.exists(encoded(path)))
        return;  // touch -c: nothing is created
    struct stat now {};
    now.st_atim.tv_nsec = UTIME_NOW;
    now.st_mtim.tv_nsec = UTIME_NOW;
    if (files_.setTimes(encoded(path), now) == 0)
        return;
    if (authorization_ == nullptr ||
        authorization_->authExecTask(QStringLiteral("/usr/bin/touch"), {QStringLiteral("-c"), path},
                                     false) != 0)
        QVLog::appendLog(u"Unable to touch %@ without administrator rights", path);
    notifyFileSystemChanged(path);
}

std::optional<QString> QVFileManager::metadataValueForKey(const QString& key, const QString& path) {
    const QByteArray name = attributeName(key);
    const QByteArray file = encoded(path);
    const ssize_t size = ::getxattr(file.constData(), name.constData(), nullptr, 0);
    const int error = errno;  // logging may change it
    SystemLog::log(u"buffer val: %i", int(size));
    if (size < 0) {
        SystemLog::log(u"Error retrieving file attribute: %i", error);
        return std::nullopt;
    }
    if (size == 0)
        return std::nullopt;
    // Reads through a 255-byte window: longer values come back as blanks of their size.
    std::vector<char> buffer(std::max<size_t>(size_t(size), 255), '\0');
    ::getxattr(file.constData(), name.constData(), buffer.data(), 255);
    return QString::fromUtf8(buffer.data(), size);
}

bool QVFileManager::setMetadataValue(const QString& value, const QString& key,
                                     const QString& path) {
    const QByteArray bytes = value.toUtf8();
    return ::setxattr(encoded(path).constData(), attributeName(key).constData(), bytes.constData(),
                      size_t(bytes.size()), 0) == 0;
}

quint32 QVFileManager::hfsTypeCodeForPath(const QString& path) {
    const auto info = readFinderInfo(path);
    if (!info)
        return 0;
    return (quint32((*info)[0]) << 24) | (quint32((*info)[1]) << 16) | (quint32((*info)[2]) << 8) |
           quint32((*info)[3]);
}

int QVFileManager::finderColorIndexForPath(const QString& path) {
    const auto info = readFinderInfo(path);
    if (!info)
        return 0;
    return ((*info)[kFinderFlagsOffset] << 8) | (*info)[kFinderFlagsOffset + 1];
}

bool QVFileManager::setFinderColorIndex(int index, const QString& path) {
    auto info = readFinderInfo(path).value_or(std::array<unsigned char, kFinderInfoSize>{});
    const int flags = ((info[kFinderFlagsOffset] << 8) | info[kFinderFlagsOffset + 1]);
    const int updated = (flags & 0xFFF1) | (index & 0x0E);
    info[kFinderFlagsOffset] = static_cast<unsigned char>(updated >> 8);
    info[kFinderFlagsOffset + 1] = static_cast<unsigned char>(updated & 0xFF);
    return ::lsetxattr(encoded(path).constData(), "user.com.apple.FinderInfo", info.data(),
                       info.size(), 0) == 0;
}

std::optional<QVFileManager::HSBColor> QVFileManager::finderColorForPath(const QString& path) {
    return finderColorForColorIndex(finderColorIndexForPath(path));
}

std::optional<QVFileManager::HSBColor> QVFileManager::finderColorForColorIndex(int index) {
    switch (index) {
        case 2:
        case 3:
            return HSBColor{0.0, 0.0, 0.72, 1.0};
        case 4:
        case 5:
            return HSBColor{0.2056, 0.5, 0.85, 1.0};
        case 6:
        case 7:
            return HSBColor{0.7917, 0.26, 0.86, 1.0};
        case 8:
        case 9:
            return HSBColor{0.5789, 0.56, 0.98, 1.0};
        case 10:
        case 11:
            return HSBColor{0.1388, 0.54, 0.95, 1.0};
        case 12:
        case 13:
            return HSBColor{0.0083, 0.54, 1.0, 1.0};
        case 14:
        case 15:
            return HSBColor{0.0888, 0.52, 0.98, 1.0};
        default:
            return std::nullopt;
    }
}

// ---- The copy engine

bool QVFileManager::copyFileWithProgress(const QString& source, const QStringList& destinations,
                                         VerificationType type, CopyDelegate* delegate,
                                         std::any object, std::any object2) {
    CopyEngine engine(files_, delegate);
    return engine.copy(source, destinations, type, std::move(object), std::move(object2));
}

bool QVFileManager::copyFileWithProgress(const QString& source, const QString& destination,
                                         CopyDelegate* delegate, std::any object,
                                         std::any object2) {
    return copyFileWithProgress(source, QStringList{destination}, VerificationType::None, delegate,
                                std::move(object), std::move(object2));
}

// ---- Digests and notices

QString QVFileManager::md5HashWithContext(const DigestContext& context) {
    return context.hexDigest();
}

QString QVFileManager::sha1HashWithContext(const DigestContext& context) {
    return context.hexDigest();
}

void QVFileManager::notifyFileSystemChanged(const QString& path) {
    static_cast<void>(path);
}
