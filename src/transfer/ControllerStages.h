#pragma once
// The controller's own copy, disk image and verification as the stages a processed volume is
// handed to, for when no other stages are given (tests give recording ones). Safe from any
// thread as the parts it hands to are.

#include "TransferStages.h"

class VerificationStage;
class VolumeCopyStage;

class ControllerStages : public TransferStages {
  public:
    ControllerStages(VolumeCopyStage& copy, VerificationStage& verifier)
        : copy_(copy), verifier_(verifier) {}
    bool copyDisk(const QString& path, const QStringList& destinations,
                  const std::shared_ptr<QVVolume>& volume) override;
    bool createDiskImage(const QString& imagePath, const QString& volumePath) override;
    void verifyVolume(const std::shared_ptr<QVVolume>& volume, const QString& destination) override;

  private:
    VolumeCopyStage& copy_;
    VerificationStage& verifier_;
};
