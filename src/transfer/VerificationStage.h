#pragma once
// Verification after a transfer: sizes and digests read back from every destination (or each
// disk image re-read) and compared with the card's. verifyVolume runs on a thread of its own;
// the digest work runs on the shared verification pool, and the view is told on the main
// thread.

#include <QString>
#include <QStringList>
#include <cstdint>
#include <memory>
#include <optional>

#include "DigestContext.h"
#include "VolumeVerification.h"

struct ControllerContext;
class QVVolume;

class VerificationStage {
  public:
    explicit VerificationStage(ControllerContext& context) : c_(context) {}

    void verifyVolume(const std::shared_ptr<QVVolume>& volume,
                      const QString& destination = QString());
    /// Re-reads the image and compares its digest with the device's; 0 when they agree (the
    /// image check of verification). Waits while the image is still being written.
    int verifyDiskImage(const QString& imagePath, QVVolume& volume);
    using SizeMap = VolumeVerification::SizeMap;
    std::optional<SizeMap> fileSizeDictForFolder(const QString& folder,
                                                 const QString& basePath = QString()) const;
    SizeMap fileSizeDictForPaths(const QStringList& paths, const QString& basePath) const;
    void checksumDictForFolder(const QString& folder, const QString& basePath,
                               const std::shared_ptr<QVVolume>& volume, bool isSource);
    void checksumDictForFiles(const QStringList& paths, const QString& basePath,
                              const std::shared_ptr<QVVolume>& volume, bool isSource);
    void checksumFile(const QString& path, const QString& basePath,
                      const std::shared_ptr<QVVolume>& volume, bool isSource);
    void verificationProgressUpdate(std::uint64_t bytes, QVVolume& volume);

  private:
    /// The digest verification uses: the manifest's.
    DigestContext::Kind verificationKind(QVVolume& volume) const;

    ControllerContext& c_;
};
