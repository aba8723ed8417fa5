#pragma once
// The controller's own copy, disk image and verification as the stages a processed volume is
// handed to, for when no other stages are given (tests give recording ones). A template over
// the controller, so the controller can hold one without the two headers including each other.

#include "TransferStages.h"

template <typename Controller>
class ControllerStages : public TransferStages {
  public:
    explicit ControllerStages(Controller& controller) : controller_(controller) {}
    bool copyDisk(const QString& path, const QStringList& destinations,
                  const std::shared_ptr<QVVolume>& volume) override {
        return controller_.copyDisk(path, destinations, volume);
    }
    bool createDiskImage(const QString& imagePath, const QString& volumePath) override {
        return controller_.createDiskImage(imagePath, volumePath);
    }
    void verifyVolume(const std::shared_ptr<QVVolume>& volume,
                      const QString& destination) override {
        controller_.verifyVolume(volume, destination);
    }

  private:
    Controller& controller_;
};
