#pragma once
// The stages a processed volume is handed to: the file-by-file copy, or disk images and their
// verification. Each successful path ends the volume's turn itself.

#include <QString>
#include <QStringList>
#include <memory>

class QVVolume;

class TransferStages {
  public:
    virtual ~TransferStages() = default;
    /// Starts copying the card to every destination folder; false when it can't start.
    virtual bool copyDisk(const QString& path, const QStringList& destinations,
                          const std::shared_ptr<QVVolume>& volume) = 0;
    /// Writes an image of the volume at imagePath; false on failure.
    virtual bool createDiskImage(const QString& imagePath, const QString& volumePath) = 0;
    /// Verifies one destination's image (runs on a thread of its own).
    virtual void verifyVolume(const std::shared_ptr<QVVolume>& volume,
                              const QString& destination) = 0;
};
