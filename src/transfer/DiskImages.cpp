#include "DiskImages.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "CopyEngine.h"
#include "FileHash.h"
#include "FileLayer.h"
#include "MountService.h"
#include "PathText.h"
#include "QVLog.h"
#include "QVVolume.h"

namespace {

// Progress and cancellation go to the volume's delegate as for any copy; the digest stays here.
class ImageDelegate : public CopyDelegate {
  public:
    explicit ImageDelegate(CopyDelegate& volume) : volume_(volume) {}
    void fileCopyBytesWritten(std::uint64_t bytes, const std::shared_ptr<CopyInfo>& info) override {
        volume_.fileCopyBytesWritten(bytes, info);
    }
    bool fileCopyShouldContinue(const std::shared_ptr<CopyInfo>& info) override {
        return volume_.fileCopyShouldContinue(info);
    }
    void fileCopyFinished(const std::shared_ptr<CopyInfo>& info) override { finished = info; }
    std::shared_ptr<CopyInfo> finished;

  private:
    CopyDelegate& volume_;
};

}  // namespace

std::optional<QString> DiskImages::deviceBehind(const QString& mountPoint) const {
    const auto entry = mounts_.entryForMountPoint(mountPoint);
    if (!entry || !mounts_.isBlockDevice(entry->source))
        return std::nullopt;
    return entry->source;
}

bool DiskImages::create(const QString& imagePath, const QString& volumePath, VerificationType type,
                        CopyDelegate& delegate) {
    const auto device = deviceBehind(volumePath);
    if (!device) {
        QVLog::appendLog(u"No device found behind %@", volumePath);
        return false;
    }
    // What the processing has just written through the mount (the removed marker above all)
    // must be on the device before it is read raw.
    const QByteArray mountPoint = PathText::bytes(volumePath);
    if (const int fd = files_.openRead(mountPoint); fd >= 0) {
        if (files_.flushFileSystem(fd) != 0)
            QVLog::appendLog(u"Unable to flush %@ before imaging it", volumePath);
        files_.close(fd);
    } else {
        QVLog::appendLog(u"Unable to flush %@ before imaging it", volumePath);
    }
    ImageDelegate imageDelegate(delegate);
    CopyEngine engine(files_, &imageDelegate);
    const bool copied = engine.copy(*device, QStringList{imagePath}, type, std::any(), std::any());
    QVLog::appendLog(u"Disk image creation output: %@ %@ -> %@", copied ? "copied" : "failed",
                     *device, imagePath);
    if (copied && imageDelegate.finished && imageDelegate.finished->sourceChecksum) {
        const std::lock_guard lock(mutex_);
        digests_[imagePath] = *imageDelegate.finished->sourceChecksum;
    }
    struct stat status {};
    if (files_.status(PathText::bytes(imagePath), &status) == 0) {
        status.st_mode = (status.st_mode & ~07777) | 0444;
        files_.applyAttributes(PathText::bytes(imagePath), status);
    }
    return true;
}

int DiskImages::verify(const QString& imagePath,
                       const std::function<void(std::uint64_t)>& progress) {
    QString expected;
    {
        std::unique_lock lock(mutex_);
        imageWritten_.wait(lock, [&] { return !beingWritten_.contains(imagePath); });
        const auto found = digests_.find(imagePath);
        if (found == digests_.end())
            return 1;  // never written whole
        expected = found->second;
    }
    // The image is read back from its medium, not from the pages that were just written.
    const QByteArray path = PathText::bytes(imagePath);
    if (const int fd = files_.openRead(path); fd >= 0) {
        const bool flushed = files_.flushData(fd) == 0;
        files_.dropCache(fd, 0, 0);
        files_.close(fd);
        if (!flushed)
            return 1;
    }
    const auto digest = expected.size() == 40
                            ? FileSHA1HashCreateWithPath(imagePath, 1 << 20, progress, files_)
                            : FileMD5HashCreateWithPath(imagePath, 1 << 20, progress, files_);
    return digest == expected ? 0 : 1;
}

std::uint64_t DiskImages::sizeOf(QVVolume& volume) const {
    const std::uint64_t usage = volume.totalMediaUsage(files_);
    const auto device = deviceBehind(volume.path());
    if (!device)
        return usage;
    struct stat status {};
    // A block device reports its capacity as its size through the layer.
    if (files_.status(PathText::bytes(*device), &status) != 0 || status.st_size <= 0)
        return usage;
    return std::uint64_t(status.st_size);
}

void DiskImages::begin(const QVVolume& volume, const QStringList& imagesToWrite) {
    const std::lock_guard lock(mutex_);
    ++users_[&volume];
    beingWritten_.insert(imagesToWrite.begin(), imagesToWrite.end());
}

void DiskImages::written(const QStringList& images) {
    {
        const std::lock_guard lock(mutex_);
        for (const QString& image : images)
            beingWritten_.erase(image);
    }
    imageWritten_.notify_all();
}

void DiskImages::end(const QVVolume& volume) {
    const std::lock_guard lock(mutex_);
    const auto found = users_.find(&volume);
    if (found == users_.end() || --found->second > 0)
        return;
    users_.erase(found);
    for (const QString& image : volume.destinations())
        digests_.erase(image);
}
