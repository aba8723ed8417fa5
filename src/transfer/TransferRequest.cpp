#include "TransferRequest.h"

#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "CardFiles.h"
#include "FileLayer.h"
#include "QVFileManager.h"
#include "QVVolume.h"

namespace {

// The nearest existing folder at or above path (absolute, cleaned).
QString nearestExisting(QString path) {
    while (!QFileInfo::exists(path) && path != QLatin1String("/"))
        path = QFileInfo(path).path();
    return path;
}

bool isLink(const QString& path) {
    struct stat status {};
    return ::lstat(QFile::encodeName(path).constData(), &status) == 0 && S_ISLNK(status.st_mode);
}

// The longest leading part of path that names something, a dangling link included.
QString longestPresent(QString path) {
    while (!QFileInfo::exists(path) && !isLink(path) && path != QLatin1String("/"))
        path = QFileInfo(path).path();
    return path;
}

// The real path of a folder that may not exist yet, as making it would resolve it: links on the
// way are followed, dangling ones too (a folder made through one lands at its target).
QString resolvedPath(QString path) {
    for (int hops = 0; hops < 40; ++hops) {
        const QString present = longestPresent(path);
        const QString rest = path.mid(present.size());
        if (!isLink(present) || QFileInfo::exists(present))
            return QDir::cleanPath(QFileInfo(present).canonicalFilePath() + u'/' + rest);
        const QString target = QFileInfo(present).symLinkTarget();
        path = QDir::cleanPath(target + rest);
    }
    return path;
}

bool isWritableFolder(const QString& path) {
    return QFileInfo(path).isDir() &&
           ::access(QFile::encodeName(path).constData(), W_OK | X_OK) == 0;
}

// What the card takes on file systems of each block size: every file rounded up to whole
// blocks, a block per folder, and a line of manifest per file.
class CardSize {
  public:
    CardSize(FileLayer& files, std::set<std::uint64_t> blockSizes) : files_(files) {
        for (const std::uint64_t size : blockSizes)
            needs_[size] = 0;
    }
    void addFile(std::uint64_t bytes) {
        for (auto& [block, need] : needs_)
            need += (bytes + block - 1) / block * block + 128;
    }
    void addFolder() {
        for (auto& [block, need] : needs_)
            need += block;
    }
    void addTree(const QByteArray& path, bool top) {
        std::vector<FileLayer::Entry> entries;
        if (files_.listFolder(path, &entries) != 0)
            return;
        for (const FileLayer::Entry& entry : entries) {
            if (top && CardFiles::isSystemLitter(entry.name))
                continue;
            const QByteArray child = path + '/' + entry.name;
            struct stat status {};
            if (files_.linkStatus(child, &status) != 0)
                continue;
            if (S_ISDIR(status.st_mode)) {
                addFolder();
                addTree(child, false);
            } else {
                addFile(S_ISREG(status.st_mode) ? std::uint64_t(status.st_size) : 0);
            }
        }
    }
    std::uint64_t need(std::uint64_t blockSize) const { return needs_.at(blockSize); }

  private:
    FileLayer& files_;
    std::map<std::uint64_t, std::uint64_t> needs_;
};

struct FileSystem {
    std::uint64_t blockSize = 4096;
    std::uint64_t free = 0;
    QStringList destinations;
    QString existing;  // the nearest existing folder of the first destination on it
};

using Refusal = TransferRequest::Refusal;

Refusal refusal(Refusal::Reason reason, QString line) {
    Refusal result;
    result.reason = reason;
    result.line = std::move(line);
    return result;
}

// The top folder of the file system that holds path (an existing folder): where its device
// changes on the way up.
QString mountPointOf(FileLayer& files, QString path) {
    struct stat status {};
    if (files.status(QFile::encodeName(path), &status) != 0)
        return path;
    while (path != QLatin1String("/")) {
        const QString parent = QFileInfo(path).path();
        struct stat above {};
        if (files.status(QFile::encodeName(parent), &above) != 0 || above.st_dev != status.st_dev)
            break;
        path = parent;
    }
    return path;
}

// A file system by its mount point's name; the system disk by the destination itself.
QString fileSystemName(FileLayer& files, const FileSystem& system) {
    const QString mountPoint = mountPointOf(files, system.existing);
    if (mountPoint == QLatin1String("/"))
        return system.destinations.value(0);
    return QFileInfo(mountPoint).fileName();
}

}  // namespace

QString TransferRequest::Refusal::sentence() const {
    if (reason != Reason::NoRoom)
        return line;
    return QStringLiteral("No space left on %1: needs %2, %3 free")
        .arg(fileSystem, QVFileManager::formatFileSize(double(needed)),
             QVFileManager::formatFileSize(double(available)));
}

std::optional<Refusal> TransferRequest::problem(FileLayer& files, const QString& source,
                                                const QStringList& destinations, bool onlyMovies) {
    if (!QFileInfo(source).isDir())
        return refusal(Refusal::Reason::NoSource,
                       QStringLiteral("%1: no such card or folder").arg(source));
    if (destinations.isEmpty())
        return refusal(Refusal::Reason::NoDestination,
                       QStringLiteral("no destination given (--dest DIR)"));
    if (const auto problem = destinationProblem(source, destinations))
        return problem;
    return spaceProblem(files, source, destinations, onlyMovies);
}

std::optional<Refusal> TransferRequest::destinationProblem(const QString& source,
                                                           const QStringList& destinations) {
    const QString card = source.isEmpty()
                             ? QString()
                             : resolvedPath(QDir::cleanPath(QFileInfo(source).absoluteFilePath()));
    std::map<QString, QString> seen;  // resolved -> as given
    for (const QString& destination : destinations) {
        if (destination.trimmed().isEmpty())
            return refusal(Refusal::Reason::EmptyDestination,
                           QStringLiteral("an empty destination was given"));
        const QString absolute = QDir::cleanPath(QFileInfo(destination).absoluteFilePath());
        const QString resolved = resolvedPath(absolute);
        if (!card.isEmpty() &&
            (resolved == card || resolved.startsWith(card + u'/') || card == QLatin1String("/")))
            return refusal(Refusal::Reason::InsideSource,
                           QStringLiteral("%1: destination is inside the source").arg(destination));
        const QFileInfo info(absolute);
        if (info.exists() && !info.isDir())
            return refusal(Refusal::Reason::NotAFolder,
                           QStringLiteral("%1: destination is not a folder").arg(destination));
        if (!isWritableFolder(nearestExisting(absolute)))
            return refusal(Refusal::Reason::Unwritable,
                           QStringLiteral("%1: destination can't be written").arg(destination));
        const auto [found, added] = seen.emplace(resolved, destination);
        if (!added)
            return refusal(Refusal::Reason::GivenTwice,
                           QStringLiteral("%1: the same folder as %2, given twice")
                               .arg(destination, found->second));
    }
    return std::nullopt;
}

std::optional<Refusal> TransferRequest::spaceProblem(FileLayer& files, const QString& source,
                                                     const QStringList& destinations,
                                                     bool onlyMovies) {
    std::map<dev_t, FileSystem> systems;
    std::set<std::uint64_t> blockSizes;
    for (const QString& destination : destinations) {
        const QString existing =
            nearestExisting(QDir::cleanPath(QFileInfo(destination).absoluteFilePath()));
        struct stat status {};
        FileLayer::Space space;
        const QByteArray path = QFile::encodeName(existing);
        if (files.status(path, &status) != 0 || files.freeSpace(path, &space) != 0)
            continue;
        FileSystem& system = systems[status.st_dev];
        system.blockSize = std::max<std::uint64_t>(space.blockSize, 512);
        system.free = space.available;
        if (system.destinations.isEmpty())
            system.existing = existing;
        system.destinations << destination;
        blockSizes.insert(system.blockSize);
    }
    CardSize card(files, blockSizes);
    if (onlyMovies) {
        for (const QString& movie : QVVolume::quickTimeMoviesInFolder(files, source))
            card.addFile(QVFileManager(files).fileSize(movie));
    } else {
        card.addTree(QFile::encodeName(source), true);
    }
    for (const auto& [device, system] : systems) {
        const std::uint64_t need =
            card.need(system.blockSize) * std::uint64_t(system.destinations.size());
        if (need <= system.free)
            continue;
        Refusal full =
            refusal(Refusal::Reason::NoRoom,
                    QStringLiteral("%1: not enough free space for this card (needs %2, %3 free)")
                        .arg(system.destinations.join(QStringLiteral(" and ")),
                             QVFileManager::formatFileSize(double(need)),
                             QVFileManager::formatFileSize(double(system.free))));
        full.fileSystem = fileSystemName(files, system);
        full.needed = need;
        full.available = system.free;
        return full;
    }
    return std::nullopt;
}
