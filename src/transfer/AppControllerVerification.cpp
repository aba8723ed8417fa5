// Verification after a transfer: sizes and digests read back from every destination and
// compared with the card's.
#include <sys/stat.h>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include "AppController.h"
#include "AscMhlHistory.h"
#include "ChecksumManifest.h"
#include "FileHash.h"
#include "MainThread.h"
#include "Preferences.h"
#include "QVException.h"
#include "QVLog.h"
#include "SettingsStore.h"

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

std::optional<AppController::SizeMap> AppController::fileSizeDictForFolder(
    const QString& folder, const QString& basePath) const {
    return verification_.fileSizeDictForFolder(folder, basePath);
}

AppController::SizeMap AppController::fileSizeDictForPaths(const QStringList& paths,
                                                           const QString& basePath) const {
    return verification_.fileSizeDictForPaths(paths, basePath);
}

DigestContext::Kind AppController::verificationKind(QVVolume& volume) const {
    return optionsOf(volume)->digest();
}

void AppController::checksumDictForFolder(const QString& folder, const QString& basePath,
                                          const std::shared_ptr<QVVolume>& volume, bool isSource) {
    verification_.checksumDictForFolder(folder, basePath, volume, isSource,
                                        verificationKind(*volume));
}

void AppController::checksumDictForFiles(const QStringList& paths, const QString& basePath,
                                         const std::shared_ptr<QVVolume>& volume, bool isSource) {
    verification_.checksumDictForFiles(paths, basePath, volume, isSource,
                                       verificationKind(*volume));
}

void AppController::checksumFile(const QString& path, const QString& basePath,
                                 const std::shared_ptr<QVVolume>& volume, bool isSource) {
    verification_.checksumFile(path, basePath, volume, isSource, verificationKind(*volume));
}

void AppController::verificationProgressUpdate(std::uint64_t bytes, QVVolume& volume) {
    if (volume.status() == QVVolume::Cancelled)
        return;
    if (progress_.advanceVerification(volume, double(bytes), services_.clock->now()))
        onMainThread([this] { reloadVolumeList(); }, false);
}

void AppController::verifyVolume(const std::shared_ptr<QVVolume>& volume, const QString&) {
    QVVolume& v = *volume;
    const QString path = v.path();
    const auto finish = [this, volume] {
        onMainThread([this, volume] { finishVolume(volume); }, true);
    };
    const auto fail = [this, &v, volume](const QString& reason) {
        v.setStatus(QVVolume::Failed);
        v.setErrorString(reason);
        QVLog::appendLog(u"%@", reason);
        incrementFailureCountForVolume(v);
    };
    const auto showReview = [this, volume] {
        onMainThread([this, volume] { view_.showVerificationFailureForVolume(volume); }, true);
    };
    const auto setVerifying = [this, &v, volume] {
        if (v.status() == QVVolume::Cancelled)
            return;  // a card pulled while its images were written stays interrupted
        v.setStatus(QVVolume::Verifying);
        publish(volume, true);
    };
    const QStringList destinations = v.destinations();
    const std::shared_ptr<const TransferOptions> options = optionsOf(v);
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
    const double extra = double(withPath) * double(transferSize(v));
    onMainThread([&v, extra] { v.incrementMaxProgress(extra); }, true);
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
            return stopCancelledTransfer(volume, destinations);
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
        verification_.waitUntilDone();
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
        writeChecksumFileForVolume(v);
        showReview();
        return finish();
    }
    finish();
}
