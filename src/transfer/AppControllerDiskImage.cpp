// Disk mode: an image of the whole card, read raw from its block device through the copy
// engine, and its check against the device's digest.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QFile>

#include "AppController.h"
#include "FileHash.h"
#include "MountTable.h"
#include "Preferences.h"
#include "QVFileManager.h"
#include "QVLog.h"
#include "SettingsStore.h"
#include "UniqueFd.h"

namespace {

// Progress and cancellation go to the controller as for any copy; the digests stay here.
class ImageDelegate : public CopyDelegate {
  public:
    explicit ImageDelegate(CopyDelegate& controller) : controller_(controller) {}
    void fileCopyBytesWritten(std::uint64_t bytes, const std::shared_ptr<CopyInfo>& info) override {
        controller_.fileCopyBytesWritten(bytes, info);
    }
    bool fileCopyShouldContinue(const std::shared_ptr<CopyInfo>& info) override {
        return controller_.fileCopyShouldContinue(info);
    }
    void fileCopyFinished(const std::shared_ptr<CopyInfo>& info) override { finished = info; }
    std::shared_ptr<CopyInfo> finished;

  private:
    CopyDelegate& controller_;
};

// The device behind a mounted card, when it is a block device.
std::optional<QString> deviceBehind(const QString& mountPoint) {
    const auto entry = MountTable::entryForMountPoint(mountPoint);
    if (!entry || !MountTable::isBlockDevice(entry->source))
        return std::nullopt;
    return entry->source;
}

// What the processing has just written through the mount (the removed marker above all) must
// be on the device before it is read raw.
void flushFileSystem(const QString& mountPoint) {
    const UniqueFd fd(
        ::open(QFile::encodeName(mountPoint).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd.valid() || ::syncfs(fd.get()) != 0)
        QVLog::appendLog(u"Unable to flush %@ before imaging it", mountPoint);
}

}  // namespace

bool AppController::createDiskImage(const QString& imagePath, const QString& volumePath) {
    const auto device = deviceBehind(volumePath);
    if (!device) {
        QVLog::appendLog(u"No device found behind %@", volumePath);
        return false;
    }
    flushFileSystem(volumePath);
    std::shared_ptr<QVVolume> volume;
    for (const auto& listed : dataArray()) {
        if (listed->path() == volumePath)
            volume = listed;
    }
    const VerificationType type =
        verificationTypeFor(settings_.integer(SettingsKey::checksumFormat));
    ImageDelegate delegate(*this);
    const bool copied = QVFileManager::copyFileWithProgress(
        *device, {imagePath}, type, &delegate, std::any(std::weak_ptr<QVVolume>(volume)),
        std::any(), fileLayer_);
    QVLog::appendLog(u"Disk image creation output: %@ %@ -> %@", copied ? "copied" : "failed",
                     *device, imagePath);
    if (copied && delegate.finished && delegate.finished->sourceChecksum) {
        const std::lock_guard lock(imageMutex_);
        imageDigests_[imagePath] = *delegate.finished->sourceChecksum;
    }
    QVFileManager::setPosixPermissions(0444, imagePath);
    return true;
}

int AppController::verifyDiskImage(const QString& imagePath, QVVolume& volume) {
    QString expected;
    {
        std::unique_lock lock(imageMutex_);
        imageWritten_.wait(lock, [&] { return !imagesBeingWritten_.contains(imagePath); });
        const auto found = imageDigests_.find(imagePath);
        if (found == imageDigests_.end())
            return 1;  // never written whole
        expected = found->second;
    }
    const auto progress = [this, &volume](std::uint64_t bytes) {
        verificationProgressUpdate(bytes, volume);
    };
    // The image is read back from its medium, not from the pages that were just written.
    const QByteArray path = QFile::encodeName(imagePath);
    if (const int fd = fileLayer_.openRead(path); fd >= 0) {
        const bool flushed = fileLayer_.flushData(fd) == 0;
        fileLayer_.dropCache(fd, 0, 0);
        fileLayer_.close(fd);
        if (!flushed)
            return 1;
    }
    const auto digest = expected.size() == 40
                            ? FileSHA1HashCreateWithPath(imagePath, 1 << 20, progress, fileLayer_)
                            : FileMD5HashCreateWithPath(imagePath, 1 << 20, progress, fileLayer_);
    return digest == expected ? 0 : 1;
}

void AppController::beginImageCheck(const QVVolume& volume, const QStringList& imagesToWrite) {
    const std::lock_guard lock(imageMutex_);
    ++imageChecks_[&volume];
    imagesBeingWritten_.insert(imagesToWrite.begin(), imagesToWrite.end());
}

void AppController::imagesWritten(const QStringList& images) {
    {
        const std::lock_guard lock(imageMutex_);
        for (const QString& image : images)
            imagesBeingWritten_.erase(image);
    }
    imageWritten_.notify_all();
}

void AppController::endImageCheck(const QVVolume& volume) {
    const std::lock_guard lock(imageMutex_);
    const auto found = imageChecks_.find(&volume);
    if (found == imageChecks_.end() || --found->second > 0)
        return;
    imageChecks_.erase(found);
    for (const QString& image : volume.destinations())
        imageDigests_.erase(image);
}

std::uint64_t AppController::transferSize(QVVolume& volume) const {
    const std::uint64_t usage = volume.totalMediaUsage();
    const auto device = inImageMode() ? deviceBehind(volume.path()) : std::nullopt;
    if (!device)
        return usage;
    const UniqueFd fd(::open(QFile::encodeName(*device).constData(), O_RDONLY | O_CLOEXEC));
    const off_t size = fd.valid() ? ::lseek(fd.get(), 0, SEEK_END) : -1;
    return size > 0 ? std::uint64_t(size) : usage;
}
