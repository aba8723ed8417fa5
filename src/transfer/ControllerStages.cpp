#include "ControllerStages.h"

#include "VerificationStage.h"
#include "VolumeCopyStage.h"

bool ControllerStages::copyDisk(const QString& path, const QStringList& destinations,
                                const std::shared_ptr<QVVolume>& volume) {
    return copy_.copyDisk(path, destinations, volume);
}

bool ControllerStages::createDiskImage(const QString& imagePath, const QString& volumePath) {
    return copy_.createDiskImage(imagePath, volumePath);
}

void ControllerStages::verifyVolume(const std::shared_ptr<QVVolume>& volume,
                                    const QString& destination) {
    verifier_.verifyVolume(volume, destination);
}
