// Disk mode through the disk-image part: the volume's image written with its own copier, and
// checked with verification's progress.
#include "AppController.h"
#include "Preferences.h"
#include "SettingsStore.h"

bool AppController::createDiskImage(const QString& imagePath, const QString& volumePath) {
    std::shared_ptr<QVVolume> volume;
    for (const auto& listed : dataArray()) {
        if (listed->path() == volumePath)
            volume = listed;
    }
    if (!volume)
        volume = std::make_shared<QVVolume>(services_.clock);  // a bar nobody looks at
    const VerificationType type = optionsOf(*volume)->verification;
    return images_.create(imagePath, volumePath, type, *copierFor(volume));
}

int AppController::verifyDiskImage(const QString& imagePath, QVVolume& volume) {
    return images_.verify(imagePath, [this, &volume](std::uint64_t bytes) {
        verificationProgressUpdate(bytes, volume);
    });
}

std::uint64_t AppController::transferSize(QVVolume& volume) const {
    return inImageMode(volume) ? images_.sizeOf(volume) : volume.totalMediaUsage(fileLayer_);
}
