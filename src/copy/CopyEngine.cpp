#include "CopyEngine.h"

#include <algorithm>
#include <new>
#include <system_error>
#include <vector>

#include "PathText.h"
#include "SystemError.h"
#include "SystemLog.h"

namespace {

QString describe(const char* what, int code) {
    return QLatin1String(what) + SystemError::text(code);
}

QByteArray parentOf(const QByteArray& path) {
    const qsizetype slash = path.lastIndexOf('/');
    return slash <= 0 ? QByteArray("/") : path.left(slash);
}

// The folder and any missing ones above it; true when it is there.
bool makeFolders(FileLayer& layer, const QByteArray& folder) {
    struct stat status {};
    if (layer.status(folder, &status) == 0)
        return S_ISDIR(status.st_mode);
    if (folder.isEmpty() || folder == "/" || !makeFolders(layer, parentOf(folder)))
        return false;
    return layer.makeFolder(folder) == 0 || errno == EEXIST;
}

// The end of a copy, shared by the inline check and the read-back's: digests compared (each
// mismatch of a copy that was made told), the source's attributes given to every copy that was
// made, each sound copy given its own name, then finished. `sound`: made and written whole.
void finishCopy(FileLayer& layer, CopyDelegate* delegate, const std::shared_ptr<CopyInfo>& info,
                const QString& sourceDigest, QStringList digests,
                const std::optional<struct stat>& attributes, const std::vector<bool>& made,
                const std::vector<bool>& sound) {
    if (!attributes)
        SystemLog::log(u"Error getting metadata for file %@", info->source);
    for (qsizetype i = 0; i < info->destinationPaths.size(); ++i) {
        const std::size_t d = std::size_t(i);
        if (!made[d])
            continue;
        const QByteArray partial = CopyEngine::partialPathFor(info->destinationPaths[i]);
        // Without the source's attributes there is nothing sound to give the copies.
        if (!attributes || !layer.applyAttributes(partial, *attributes))
            SystemLog::log(u"Error setting metadata for file %@", info->destinations[i]);
        const bool equal = sourceDigest.isNull() || digests.value(i) == sourceDigest;
        if (!sound[d] || !equal)
            continue;
        if (layer.rename(partial, info->destinationPaths[i]) == 0)
            continue;
        const int code = errno;
        SystemLog::log(u"Error writing file %@: %i", info->destinations[i], code);
        if (delegate)
            delegate->fileCopyProblem(info, int(i), describe("can't be given its name: ", code));
        if (i < digests.size())
            digests[i] = QString("");  // the copy is not where its name says
    }
    if (!sourceDigest.isNull()) {
        info->sourceChecksum = sourceDigest;
        for (qsizetype i = 0; i < digests.size(); ++i) {
            if (digests[i] == sourceDigest || !made[std::size_t(i)] || !delegate)
                continue;
            info->destChecksum = digests[i];
            delegate->fileCopyVerificationFailed(info, info->destinations[i]);
        }
        info->destChecksums = digests;
    }
    if (delegate)
        delegate->fileCopyFinished(info);
}

}  // namespace

// Closes every descriptor it holds when the copy ends, however it ends; a failed close of a
// copy is a failed write (the last of its data may not have landed).
class CopyEngine::OpenFiles {
  public:
    explicit OpenFiles(FileLayer& layer) : layer_(layer) {}
    ~OpenFiles() { closeAll(); }
    OpenFiles(const OpenFiles&) = delete;
    OpenFiles& operator=(const OpenFiles&) = delete;
    int keep(int fd) {
        if (fd >= 0)
            fds_.push_back(fd);
        return fd;
    }
    /// errno of each descriptor's close that failed, by descriptor.
    std::vector<std::pair<int, int>> closeAll() {
        std::vector<std::pair<int, int>> failed;
        for (const int fd : fds_) {
            if (layer_.close(fd) != 0)
                failed.emplace_back(fd, errno);
        }
        fds_.clear();
        return failed;
    }

  private:
    FileLayer& layer_;
    std::vector<int> fds_;
};

CopyEngine::CopyEngine(FileLayer& layer, CopyDelegate* delegate, MediaReadBack* readBack)
    : layer_(layer), delegate_(delegate), readBack_(readBack) {}

bool CopyEngine::copy(const QString& source, const QStringList& destinations, VerificationType type,
                      std::any object, std::any object2) {
    QList<QByteArray> paths;
    for (const QString& destination : destinations)
        paths << PathText::bytes(destination);
    return copy(PathText::bytes(source), paths, type, std::move(object), std::move(object2));
}

bool CopyEngine::sourceUnreadable(QStringView line, int code) {
    SystemLog::log(line, info_->source);
    tellProblem(-1, describe("can't be read: ", code));
    return false;
}

void CopyEngine::tellProblem(int destination, const QString& reason) {
    if (delegate_)
        delegate_->fileCopyProblem(info_, destination, reason);
}

std::vector<bool> CopyEngine::prepareFolders(const QList<QByteArray>& destinations) {
    std::vector<bool> ready;
    for (qsizetype i = 0; i < destinations.size(); ++i) {
        const QByteArray folder = parentOf(destinations[i]);
        ready.push_back(destinations[i].isEmpty() || makeFolders(layer_, folder));
        if (ready.back())
            continue;
        const int code = errno;
        destinationErrors_[std::size_t(i)] = code;
        SystemLog::log(
            u"Unable to copy file %@ - destination directory %@ doesn't exist. Aborting copy "
            u"process...",
            info_->source, PathText::display(folder));
        tellProblem(int(i), describe("its folder can't be made: ", code));
    }
    return ready;
}

// Each destination that can't be made is told and left out; the others still get the file.
std::vector<CopyPipeline::Destination> CopyEngine::openDestinations(
    OpenFiles& files, const std::vector<bool>& ready) {
    std::vector<CopyPipeline::Destination> targets;
    for (qsizetype i = 0; i < info_->destinationPaths.size(); ++i) {
        const QByteArray& path = info_->destinationPaths[i];
        const bool wanted = ready[std::size_t(i)] && !path.isEmpty();
        const int fd = wanted ? openDestination(files, path) : -1;
        if (fd < 0 && wanted) {
            const int code = errno;
            destinationErrors_[std::size_t(i)] = code;
            SystemLog::log(u"Error: Unable to open destination file %@. Aborting copy process...",
                           info_->destinations[i]);
            tellProblem(int(i), describe("can't be created: ", code));
        }
        targets.push_back({path, fd});
    }
    return targets;
}

// A folder in the copy's place would refuse its name only at the end, after all the writing.
int CopyEngine::openDestination(OpenFiles& files, const QByteArray& path) {
    struct stat status {};
    if (layer_.linkStatus(path, &status) == 0 && S_ISDIR(status.st_mode)) {
        errno = EISDIR;
        return -1;
    }
    return files.keep(layer_.openReadWrite(partialPathFor(path)));
}

QByteArray CopyEngine::partialPathFor(const QByteArray& path) {
    const qsizetype slash = path.lastIndexOf('/');
    return path.left(slash + 1) + '.' + path.mid(slash + 1) + ".cardsweep-part";
}

bool CopyEngine::copy(const QByteArray& source, const QList<QByteArray>& destinations,
                      VerificationType type, std::any object, std::any object2) {
    info_ = std::make_shared<CopyInfo>();
    info_->source = PathText::display(source);
    for (const QByteArray& destination : destinations)
        info_->destinations << PathText::display(destination);
    info_->sourcePath = source;
    info_->destinationPaths = destinations;
    destinationErrors_.assign(std::size_t(destinations.size()), 0);
    info_->delegate = delegate_;
    info_->object = std::move(object);
    info_->object2 = std::move(object2);

    struct stat entry {};
    if (layer_.linkStatus(source, &entry) != 0) {
        const int code = errno;
        return sourceUnreadable(u"Error: File %@ doesn't exist. Aborting copy process...", code);
    }
    if (destinations.isEmpty()) {
        SystemLog::log(u"Error: You must have at least one destination. Aborting copy process...");
        return false;
    }
    const std::vector<bool> ready = prepareFolders(destinations);

    OpenFiles files(layer_);
    const int sourceFd = files.keep(layer_.openRead(source));
    if (sourceFd < 0) {
        const int code = errno;
        return sourceUnreadable(u"Error: Unable to read source file %@. Aborting copy process...",
                                code);
    }
    // Without its size a short read would pass for a whole copy.
    struct stat sourceStatus {};
    if (layer_.status(source, &sourceStatus) != 0) {
        const int code = errno;
        return sourceUnreadable(u"Error getting metadata for file %@", code);
    }
    const std::uint64_t size = std::uint64_t(sourceStatus.st_size);
    info_->size = size;

    std::vector<CopyPipeline::Destination> targets = openDestinations(files, ready);
    std::vector<bool> opened;
    std::vector<int> destinationFds;
    QList<QByteArray> readBackPaths;
    for (const CopyPipeline::Destination& target : targets) {
        opened.push_back(target.fd >= 0);
        destinationFds.push_back(target.fd);
        readBackPaths << (target.fd >= 0 ? partialPathFor(target.path) : QByteArray());
    }
    if (std::find(opened.begin(), opened.end(), true) == opened.end())
        return false;  // nothing to copy to

    const bool fromMedium = readBack_ && type != VerificationType::None;
    const std::shared_ptr<MediaReadBack::Check> check =
        fromMedium ? readBack_->begin(readBackPaths, size) : nullptr;
    // However this ends short of handing the copies over, the read-back gives up on them.
    const std::shared_ptr<void> abandonUnlessHandedOver(nullptr, [&](void*) {
        if (check)
            readBack_->abandon(*check);
    });
    std::optional<CopyPipeline::Result> copied =
        transfer(sourceFd, size, std::move(targets), type, check.get());
    if (!copied || copied->stopped)
        return false;
    CopyPipeline::Result& result = *copied;
    // A buffered reader makes one last pass of nothing when the data ends on a pass boundary,
    // and after any read error.
    if (result.readFailed || result.copied % kPassSize == 0)
        SystemLog::log(u"%@ returned 0 bytes", info_->source);
    for (const auto& [fd, code] : files.closeAll()) {
        const auto found = std::find(destinationFds.begin(), destinationFds.end(), fd);
        if (found != destinationFds.end() &&
            result.writeErrors[std::size_t(found - destinationFds.begin())] == 0)
            result.writeErrors[std::size_t(found - destinationFds.begin())] = code;
    }

    if (result.copied < size) {
        SystemLog::log(u"Error: copied file size does not match original source %@", info_->source);
        tellProblem(-1,
                    result.readFailed
                        ? QStringLiteral("read error at byte %1: %2")
                              .arg(result.copied)
                              .arg(SystemError::text(result.readError))
                        : QStringLiteral("ended at byte %1 of %2").arg(result.copied).arg(size));
        return false;
    }
    std::vector<bool> failed(opened.size());
    for (std::size_t i = 0; i < opened.size(); ++i) {
        if (result.writeErrors[i] != 0)
            destinationErrors_[i] = result.writeErrors[i];
        failed[i] = !opened[i] || result.writeErrors[i] != 0;
        if (opened[i] && result.writeErrors[i] != 0)
            tellProblem(int(i), describe("can't be written: ", result.writeErrors[i]));
    }
    if (delegate_)
        delegate_->fileCopyBytesWritten(result.copied, info_);

    const QString sourceDigest = result.sourceDigest ? result.sourceDigest->hexDigest() : QString();
    if (result.sourceDigest)
        info_->alsoChecksums = result.sourceDigest->alsoHexDigests();
    const bool everyCopyMade = std::find(opened.begin(), opened.end(), false) == opened.end();
    if (check) {
        handOverToReadBack(*check, sourceDigest, opened, failed);
        return everyCopyMade;
    }
    QStringList digests;
    std::vector<bool> sound(opened.size());
    for (std::size_t i = 0; i < result.destinationDigests.size(); ++i)
        digests << (opened[i] ? result.destinationDigests[i].hexDigest() : QString(""));
    for (std::size_t i = 0; i < opened.size(); ++i)
        sound[i] = !failed[i];
    struct stat attributes {};
    const bool known = layer_.status(source, &attributes) == 0;
    finishCopy(layer_, delegate_, info_, sourceDigest, digests,
               known ? std::optional(attributes) : std::nullopt, opened, sound);
    return everyCopyMade;
}

// The copies are settled once read back from their medium: problems told, digests compared,
// attributes given (after the read, so a read-only mode can't stand in its way), finished.
void CopyEngine::handOverToReadBack(MediaReadBack::Check& check, const QString& sourceDigest,
                                    const std::vector<bool>& opened,
                                    const std::vector<bool>& failed) {
    struct stat attributes {};
    const std::optional<struct stat> known = layer_.status(info_->sourcePath, &attributes) == 0
                                                 ? std::optional(attributes)
                                                 : std::nullopt;
    FileLayer& layer = layer_;
    CopyDelegate* const delegate = delegate_;
    const std::shared_ptr<CopyInfo> info = info_;
    readBack_->complete(
        check, failed, [=, &layer](const std::vector<MediaReadBack::Outcome>& outcomes) {
            QStringList digests;
            std::vector<bool> sound(outcomes.size());
            for (std::size_t i = 0; i < outcomes.size(); ++i) {
                if (!failed[i] && !outcomes[i].problem.isEmpty() && delegate)
                    delegate->fileCopyProblem(info, int(i), outcomes[i].problem);
                digests << (failed[i] ? QString("") : outcomes[i].digest);
                sound[i] = !failed[i] && outcomes[i].problem.isEmpty();
            }
            finishCopy(layer, delegate, info, sourceDigest, digests, known, opened, sound);
        });
}

std::optional<CopyPipeline::Result> CopyEngine::transfer(
    int sourceFd, std::uint64_t size, std::vector<CopyPipeline::Destination> targets,
    VerificationType type, MediaReadBack::Check* check) {
    // Writers hold at each report until it is answered, so a cancel leaves exactly what was
    // reported; with nobody to ask there is nothing to wait for.
    const std::uint64_t holdEvery = delegate_ ? kProgressInterval : 0;
    try {
        CopyPipeline pipeline(layer_, sourceFd, size, std::move(targets), type, check == nullptr,
                              also_);
        return pipeline.run(holdEvery, [this, check](std::uint64_t completed) {
            if (check)
                readBack_->written(*check, completed);
            return reportProgress(completed);
        });
    } catch (const std::bad_alloc&) {
    } catch (const std::system_error&) {  // no thread to be had
    }
    SystemLog::log(u"Error copying file %@ - out of memory", info_->source);
    tellProblem(-1, QStringLiteral("not copied: out of memory"));
    return std::nullopt;
}

bool CopyEngine::reportProgress(std::uint64_t completed) {
    if (!delegate_ || completed - reported_ < kProgressInterval)
        return true;
    reported_ = completed;
    delegate_->fileCopyBytesWritten(completed, info_);
    return delegate_->fileCopyShouldContinue(info_);
}
