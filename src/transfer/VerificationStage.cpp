// Verification after a transfer: sizes and digests read back from every destination and
// compared with the card's.
#include "VerificationStage.h"

#include <sys/stat.h>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include "AppView.h"
#include "AscMhlHistory.h"
#include "ChecksumManifest.h"
#include "ControllerContext.h"
#include "ControllerFlow.h"
#include "DestinationReservation.h"
#include "DiskImages.h"
#include "FileHash.h"
#include "MainThread.h"
#include "Preferences.h"
#include "QVException.h"
#include "QVFileManager.h"
#include "QVLog.h"
#include "QVVolume.h"
#include "Services.h"
#include "SettingsStore.h"
#include "TransferOptions.h"
#include "TransferProgress.h"
#include "TransferQueue.h"
#include "TransferSettings.h"
#include "TransferStages.h"
#include "VolumeList.h"
#include "VolumeUpdates.h"
#include "VolumeVerification.h"

namespace {

template <typename Map>
Map blankDictionaryWithKeys(const std::map<QString, std::uint64_t>& sizes) {
    Map blank;
    for (const auto& [key, size] : sizes)
        blank[key] = QString();
    return blank;
}

QString describe(const QVVolume::ChecksumMap& digests) {
    QStringList entries;
    for (const auto& [path, digest] : digests)
        entries << QStringLiteral("\"%1\" = %2").arg(path, digest);
    return QStringLiteral("{ %1 }").arg(entries.join(QStringLiteral("; ")));
}

}  // namespace

std::optional<VerificationStage::SizeMap> VerificationStage::fileSizeDictForFolder(
    const QString& folder, const QString& basePath) const {
    return c_.verification.fileSizeDictForFolder(folder, basePath);
}

VerificationStage::SizeMap VerificationStage::fileSizeDictForPaths(const QStringList& paths,
                                                                   const QString& basePath) const {
    return c_.verification.fileSizeDictForPaths(paths, basePath);
}

DigestContext::Kind VerificationStage::verificationKind(QVVolume& volume) const {
    return c_.optionsOf(volume)->digest();
}

void VerificationStage::checksumDictForFolder(const QString& folder, const QString& basePath,
                                              const std::shared_ptr<QVVolume>& volume,
                                              bool isSource) {
    c_.verification.checksumDictForFolder(folder, basePath, volume, isSource,
                                          verificationKind(*volume));
}

void VerificationStage::checksumDictForFiles(const QStringList& paths, const QString& basePath,
                                             const std::shared_ptr<QVVolume>& volume,
                                             bool isSource) {
    c_.verification.checksumDictForFiles(paths, basePath, volume, isSource,
                                         verificationKind(*volume));
}

void VerificationStage::checksumFile(const QString& path, const QString& basePath,
                                     const std::shared_ptr<QVVolume>& volume, bool isSource) {
    c_.verification.checksumFile(path, basePath, volume, isSource, verificationKind(*volume));
}

void VerificationStage::verificationProgressUpdate(std::uint64_t bytes, QVVolume& volume) {
    if (volume.status() == QVVolume::Cancelled)
        return;
    if (c_.progress.advanceVerification(volume, double(bytes), c_.services.clock->now()))
        c_.onMainThread([this] { c_.flow.reloadVolumeList(); }, false);
}

void VerificationStage::verifyVolume(const std::shared_ptr<QVVolume>& volume, const QString&) {
    QVVolume& v = *volume;
    const QString path = v.path();
    const auto finish = [this, volume] {
        c_.onMainThread([this, volume] { c_.flow.finishVolume(volume); }, true);
    };
    const auto fail = [this, &v, volume](const QString& reason) {
        v.setStatus(QVVolume::Failed);
        v.setErrorString(reason);
        QVLog::appendLog(u"%@", reason);
        c_.flow.incrementFailureCountForVolume(v);
    };
    const auto showReview = [this, volume] {
        c_.onMainThread([this, volume] { c_.view.showVerificationFailureForVolume(volume); }, true);
    };
    const auto setVerifying = [this, &v, volume] {
        if (v.status() == QVVolume::Cancelled)
            return;  // a card pulled while its images were written stays interrupted
        v.setStatus(QVVolume::Verifying);
        c_.publish(volume, true);
    };
    const QStringList destinations = v.destinations();
    const std::shared_ptr<const TransferOptions> options = c_.optionsOf(v);
    const bool imageMode = options->diskImage;

    if (options->verifySizes) {
        QVLog::appendLog(u"Verifying file sizes for volume %@", path);
        setVerifying();
        if (!imageMode) {
            const SizeMap sources =
                v.hasQTMovies()
                    ? fileSizeDictForPaths(v.qtMoviePaths().value_or(QStringList()), path)
                    : fileSizeDictForFolder(path).value_or(SizeMap());
            v.setSourceChecksumDict(blankDictionaryWithKeys<QVVolume::ChecksumMap>(sources));
            std::map<QString, QVVolume::ChecksumMap> blanks;
            for (const QString& destination : destinations) {
                const SizeMap sizes = fileSizeDictForFolder(destination).value_or(SizeMap());
                blanks[destination] = blankDictionaryWithKeys<QVVolume::ChecksumMap>(sizes);
                v.setDestChecksumDict(blanks);
                if (sizes == sources)
                    continue;
                fail(QStringLiteral(
                    "Verification failure: Source file sizes do not match destination file sizes"));
                showReview();
                break;
            }
        }
    }
    if (!options->verifyChecksums)
        return finish();

    QVLog::appendLog(u"Verifying file checksums for volume %@", path);
    const auto withPath = std::count_if(destinations.begin(), destinations.end(),
                                        [](const QString& d) { return !d.isEmpty(); });
    const double extra = double(withPath) * double(c_.flow.transferSize(v));
    c_.onMainThread([&v, extra] { v.incrementMaxProgress(extra); }, true);
    v.timeEstimate().reset();
    v.timeEstimate().start();
    setVerifying();

    if (imageMode) {
        for (const QString& image : destinations) {
            const int code = verifyDiskImage(image, v);
            QVLog::appendLog(u"Disk verify return value: %i", code);
            if (code == 0)
                continue;
            if (v.status() == QVVolume::Cancelled)
                break;  // not a bad image: the card went or the user stopped it being read
            fail(QStringLiteral("Disk image failed verification test"));
            return finish();
        }
        if (v.status() == QVVolume::Cancelled)
            return c_.flow.stopCancelledTransfer(volume, destinations);
        return finish();
    }
    if (v.status() == QVVolume::Failed)
        return finish();
    v.setSourceChecksumDict({});
    v.setDestChecksumDict({});

    if (v.status() != QVVolume::Cancelled) {
        if (v.hasQTMovies())
            checksumDictForFiles(v.qtMoviePaths().value_or(QStringList()), path, volume, true);
        else
            checksumDictForFolder(path, path, volume, true);
        for (const QString& destination : destinations) {
            if (v.status() == QVVolume::Cancelled)
                return;
            checksumDictForFolder(destination, destination, volume, false);
        }
        c_.verification.waitUntilDone();
    }
    if (v.status() == QVVolume::Cancelled)
        return;
    const QVVolume::ChecksumMap sources = v.sourceChecksumDict();
    QVLog::appendLog(u"Source checksums: %@", describe(sources));
    if (destinations.isEmpty())
        return finish();

    const auto perDestination = v.destChecksumDict();
    for (const QString& destination : destinations) {
        if (v.status() == QVVolume::Cancelled)
            return;
        const auto found = perDestination.find(destination);
        const QVVolume::ChecksumMap digests =
            found == perDestination.end() ? QVVolume::ChecksumMap() : found->second;
        QVLog::appendLog(u"Destination checksums: %@", describe(digests));
        if (digests == sources)
            continue;
        fail(QStringLiteral("Verification failure: Source files do not match destination files"));
        c_.flow.writeChecksumFileForVolume(v);
        showReview();
        return finish();
    }
    finish();
}

int VerificationStage::verifyDiskImage(const QString& imagePath, QVVolume& volume) {
    return c_.images.verify(imagePath, [this, &volume](std::uint64_t bytes) {
        verificationProgressUpdate(bytes, volume);
    });
}
