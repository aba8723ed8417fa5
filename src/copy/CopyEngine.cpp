#include "CopyEngine.h"

#include <QFile>
#include <QFileInfo>
#include <new>
#include <system_error>
#include <vector>

#include "QVFileManager.h"
#include "SystemLog.h"

namespace {

// Closes every descriptor it holds when the copy ends, however it ends.
class OpenFiles {
  public:
    explicit OpenFiles(FileLayer& layer) : layer_(layer) {}
    ~OpenFiles() { closeAll(); }
    void closeAll() {
        for (const int fd : fds_)
            layer_.close(fd);
        fds_.clear();
    }
    OpenFiles(const OpenFiles&) = delete;
    OpenFiles& operator=(const OpenFiles&) = delete;
    int keep(int fd) {
        if (fd >= 0)
            fds_.push_back(fd);
        return fd;
    }

  private:
    FileLayer& layer_;
    std::vector<int> fds_;
};

}  // namespace

CopyEngine::CopyEngine(FileLayer& layer, CopyDelegate* delegate)
    : layer_(layer), delegate_(delegate) {}

bool CopyEngine::prepareFolders(const QString& source, const QStringList& destinations) const {
    for (const QString& destination : destinations) {
        const QString folder = QFileInfo(destination).path();
        if (QVFileManager::fileExistsAtPath(folder))
            continue;
        if (QVFileManager::createDirectory(folder, 10))
            continue;
        SystemLog::log(
            u"Unable to copy file %@ - destination directory %@ doesn't exist. Aborting copy "
            u"process...",
            source, folder);
        return false;
    }
    return true;
}

bool CopyEngine::copy(const QString& source, const QStringList& destinations, VerificationType type,
                      std::any object, std::any object2) {
    if (!QVFileManager::fileExistsAtPath(source)) {
        SystemLog::log(u"Error: File %@ doesn't exist. Aborting copy process...", source);
        return false;
    }
    if (destinations.isEmpty()) {
        SystemLog::log(u"Error: You must have at least one destination. Aborting copy process...");
        return false;
    }
    if (!prepareFolders(source, destinations))
        return false;

    info_ = std::make_shared<CopyInfo>();
    info_->source = source;
    info_->destinations = destinations;
    info_->delegate = delegate_;
    info_->object = std::move(object);
    info_->object2 = std::move(object2);

    OpenFiles files(layer_);
    const QByteArray sourcePath = QFile::encodeName(source);
    const int sourceFd = files.keep(layer_.openRead(sourcePath));
    if (sourceFd < 0) {
        SystemLog::log(u"Error: Unable to read source file %@. Aborting copy process...", source);
        return false;
    }
    // Without its size a short read would pass for a whole copy.
    struct stat sourceStatus {};
    if (layer_.status(sourcePath, &sourceStatus) != 0) {
        SystemLog::log(u"Error getting metadata for file %@", source);
        return false;
    }
    const std::uint64_t size = std::uint64_t(sourceStatus.st_size);

    std::vector<CopyPipeline::Destination> targets;
    for (const QString& destination : destinations) {
        const QByteArray path = QFile::encodeName(destination);
        const int fd = files.keep(layer_.openReadWrite(path));
        if (fd < 0) {
            SystemLog::log(u"Error: Unable to open destination file %@. Aborting copy process...",
                           destination);
            return false;
        }
        targets.push_back({path, fd});
    }

    std::optional<CopyPipeline::Result> copied =
        transfer(source, sourceFd, size, std::move(targets), type);
    if (!copied || copied->stopped)
        return false;
    CopyPipeline::Result& result = *copied;
    // A buffered reader makes one last pass of nothing when the data ends on a pass boundary,
    // and after any read error.
    if (result.readFailed || result.copied % kPassSize == 0)
        SystemLog::log(u"%@ returned 0 bytes", source);
    files.closeAll();

    if (result.copied < size) {
        SystemLog::log(u"Error: copied file size does not match original source %@", source);
        return false;
    }
    if (delegate_)
        delegate_->fileCopyBytesWritten(result.copied, info_);
    compareDigests(result);
    copyAttributes(sourcePath, destinations);
    if (delegate_)
        delegate_->fileCopyFinished(info_);
    return true;
}

std::optional<CopyPipeline::Result> CopyEngine::transfer(
    const QString& source, int sourceFd, std::uint64_t size,
    std::vector<CopyPipeline::Destination> targets, VerificationType type) {
    // Writers hold at each report until it is answered, so a cancel leaves exactly what was
    // reported; with nobody to ask there is nothing to wait for.
    const std::uint64_t holdEvery = delegate_ ? kProgressInterval : 0;
    try {
        CopyPipeline pipeline(layer_, sourceFd, size, std::move(targets), type);
        return pipeline.run(holdEvery,
                            [this](std::uint64_t completed) { return reportProgress(completed); });
    } catch (const std::bad_alloc&) {
    } catch (const std::system_error&) {  // no thread to be had
    }
    SystemLog::log(u"Error copying file %@ - out of memory", source);
    return std::nullopt;
}

bool CopyEngine::reportProgress(std::uint64_t completed) {
    if (!delegate_ || completed - reported_ < kProgressInterval)
        return true;
    reported_ = completed;
    delegate_->fileCopyBytesWritten(completed, info_);
    return delegate_->fileCopyShouldContinue(info_);
}

void CopyEngine::compareDigests(CopyPipeline::Result& result) {
    if (!result.sourceDigest)
        return;
    const auto finish = result.sourceDigest->kind() == DigestContext::Kind::SHA1
                            ? &QVFileManager::sha1HashWithContext
                            : &QVFileManager::md5HashWithContext;
    const QString sourceDigest = finish(*result.sourceDigest);
    info_->sourceChecksum = sourceDigest;
    QStringList digests;
    for (qsizetype i = 0; i < info_->destinations.size(); ++i) {
        const QString digest = finish(result.destinationDigests[std::size_t(i)]);
        digests << digest;
        if (digest == sourceDigest || !delegate_)
            continue;
        info_->destChecksum = digest;
        delegate_->fileCopyVerificationFailed(info_, info_->destinations[i]);
    }
    info_->destChecksums = digests;
}

void CopyEngine::copyAttributes(const QByteArray& source, const QStringList& destinations) {
    struct stat attributes {};
    const bool known = layer_.status(source, &attributes) == 0;
    if (!known)
        SystemLog::log(u"Error getting metadata for file %@", QFile::decodeName(source));
    for (const QString& destination : destinations) {
        // Without the source's attributes there is nothing sound to give the copies.
        if (!known || !layer_.applyAttributes(QFile::encodeName(destination), attributes))
            SystemLog::log(u"Error setting metadata for file %@", destination);
    }
}
