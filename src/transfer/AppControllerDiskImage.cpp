// Disk mode: an image of the whole card, read raw from its block device through the copy
// engine, and its check against the device's digest.
#include <sys/stat.h>

#include <QFile>

#include "AppController.h"
#include "FileHash.h"
#include "MountTable.h"
#include "Preferences.h"
#include "QVFileManager.h"
#include "QVLog.h"
#include "SettingsStore.h"

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

}  // namespace

bool AppController::createDiskImage(const QString& imagePath, const QString& volumePath) {
    const auto entry = MountTable::entryForMountPoint(volumePath);
    if (!entry || !MountTable::isBlockDevice(entry->source)) {
        QVLog::appendLog(u"No device found behind %@", volumePath);
        return false;
    }
    std::shared_ptr<QVVolume> volume;
    for (const auto& listed : dataArray()) {
        if (listed->path() == volumePath)
            volume = listed;
    }
    const VerificationType type = settings_.integer(SettingsKey::checksumFormat) == 1
                                      ? VerificationType::SHA1
                                      : VerificationType::MD5;
    ImageDelegate delegate(*this);
    const bool copied = QVFileManager::copyFileWithProgress(
        entry->source, {imagePath}, type, &delegate, std::any(std::weak_ptr<QVVolume>(volume)),
        std::any(), fileLayer_);
    QVLog::appendLog(u"Disk image creation output: %@ %@ -> %@", copied ? "copied" : "failed",
                     entry->source, imagePath);
    if (copied && delegate.finished && delegate.finished->sourceChecksum) {
        const std::lock_guard lock(lock_);
        imageDigests_[imagePath] = *delegate.finished->sourceChecksum;
    }
    QVFileManager::setPosixPermissions(0444, imagePath);
    return true;
}

int AppController::verifyDiskImage(const QString& imagePath, QVVolume& volume) {
    QString expected;
    {
        const std::lock_guard lock(lock_);
        const auto found = imageDigests_.find(imagePath);
        if (found == imageDigests_.end())
            return 1;
        expected = found->second;
    }
    const auto progress = [this, &volume](std::uint64_t bytes) {
        verificationProgressUpdate(bytes, volume);
    };
    const auto digest = expected.size() == 40
                            ? FileSHA1HashCreateWithPath(imagePath, 1 << 20, progress)
                            : FileMD5HashCreateWithPath(imagePath, 1 << 20, progress);
    return digest == expected ? 0 : 1;
}
