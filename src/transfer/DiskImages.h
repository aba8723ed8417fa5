#pragma once
// Disk mode: images of whole cards read raw from their block devices through the copy engine,
// and each image's check against the digest its device gave on the way. Knows which images are
// still being written, so a check waits for its image, and forgets a volume's digests once the
// last party working on its images is done. Safe from any thread; one mutex guards it all.

#include <QString>
#include <QStringList>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>

#include "CopyInfo.h"

class CopyDelegate;
class FileLayer;
class MountService;
class QVVolume;

class DiskImages {
  public:
    DiskImages(FileLayer& files, const MountService& mounts) : files_(files), mounts_(mounts) {}

    /// The block device mounted at mountPoint, if that is what is there.
    std::optional<QString> deviceBehind(const QString& mountPoint) const;
    /// Reads the device behind volumePath raw into a read-only image, digesting it on the way;
    /// progress and cancellation through the delegate. True once a device was found.
    bool create(const QString& imagePath, const QString& volumePath, VerificationType type,
                CopyDelegate& delegate);
    /// 0 when the image, read back from its medium, has its device's digest; waits while the
    /// image is still being written.
    int verify(const QString& imagePath, const std::function<void(std::uint64_t)>& progress);
    /// Bytes one image of the volume takes: its whole device, else what the card holds.
    std::uint64_t sizeOf(QVVolume& volume) const;

    /// One more party works on the volume's images; checks of imagesToWrite wait until
    /// written() names them.
    void begin(const QVVolume& volume, const QStringList& imagesToWrite = {});
    void written(const QStringList& images);
    /// The last party to end forgets the images' digests.
    void end(const QVVolume& volume);

  private:
    FileLayer& files_;
    const MountService& mounts_;
    std::mutex mutex_;
    std::condition_variable imageWritten_;
    std::set<QString> beingWritten_;        // guarded by mutex_
    std::map<QString, QString> digests_;    // guarded by mutex_: image -> device's digest
    std::map<const QVVolume*, int> users_;  // guarded by mutex_
};
