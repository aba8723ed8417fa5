#include "CopyEngine.h"

#include <QFile>
#include <QFileInfo>
#include <vector>

#include "QVFileManager.h"
#include "SystemLog.h"

namespace {

// Closes every descriptor it holds when the copy ends, however it ends.
class OpenFiles {
  public:
    explicit OpenFiles(FileLayer& layer) : layer_(layer) {}
    ~OpenFiles() {
        for (const int fd : fds_)
            layer_.close(fd);
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
    struct stat sourceStatus {};
    layer_.status(sourcePath, &sourceStatus);
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

    CopyPipeline pipeline(layer_, sourceFd, size, std::move(targets), type);
    CopyPipeline::Result result =
        pipeline.run([this](std::uint64_t completed) { return reportProgress(completed); });
    if (result.stopped)
        return false;
    // A buffered reader makes one last pass of nothing when the data ends on a pass boundary,
    // and after any read error.
    if (result.readFailed || result.copied % kPassSize == 0)
        SystemLog::log(u"%@ returned 0 bytes", source);

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
