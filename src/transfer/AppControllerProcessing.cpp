// The worker that takes an admitted volume to the start of its copy, and destination
// reservation.
#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include "AppController.h"
#include "CardFiles.h"
#include "FileLayer.h"
#include "MainThread.h"
#include "MetadataField.h"
#include "MetadataNaming.h"
#include "Notifier.h"
#include "PathText.h"
#include "Preferences.h"
#include "QVException.h"
#include "QVFileManager.h"
#include "QVFormat.h"
#include "QVLog.h"
#include "QVVolume.h"
#include "SettingsStore.h"
#include "TransferRequest.h"
#include "TransferStages.h"
#include "WorkerThreads.h"

namespace {

// A card pulled since it was listed leaves nothing, or an empty folder on another device.
bool stillListedWhereItWas(FileLayer& files, const QVVolume& volume) {
    struct stat status {};
    const QByteArray path = PathText::bytes(volume.path());
    if (files.linkStatus(path, &status) != 0)
        return false;
    return volume.sourceDevice() == 0 ||
           (files.status(path, &status) == 0 && quint64(status.st_dev) == volume.sourceDevice());
}

}  // namespace

void AppController::markFailed(const std::shared_ptr<QVVolume>& volume, const QString& reason) {
    volume->setStatus(QVVolume::Failed);
    volume->setErrorString(reason);
    publish(volume, true);
}

void AppController::postTransferFailed(const QVVolume& volume) {
    services_.notifier.postGrowlNotification(QStringLiteral("Transfer Failed"), volume.name(),
                                             QString(), QStringLiteral("Transfer Failed"));
}

bool AppController::stoppedByCancel(const std::shared_ptr<QVVolume>& volume,
                                    const QStringList& reserved) {
    if (volume->status() != QVVolume::Cancelled)
        return false;
    // Folders claimed already are marked as not complete, like those of a copy cut short.
    if (volume->destinations().isEmpty() && !inImageMode(*volume)) {
        for (const QString& folder : reserved)
            volume->addDestination(folder);
    }
    markEndedEarly(volume, volume->path(), services_.clock->now());
    stopCancelledTransfer(volume, reserved);
    return true;
}

void AppController::processVolumeWithSettings(const TransferSettings& settings) {
    try {
        onMainThread([this] { refreshTotalRemainingSpace(); }, false);
        const std::shared_ptr<QVVolume> volume = settings.volume;
        QVVolume& v = *volume;
        v.incrementThreadCount();
        const QString path = v.path();
        const auto failWith = [&](const QString& reason, bool notify) {
            markFailed(volume, reason);
            if (notify)
                postTransferFailed(v);
            releaseSlot(v);
            endTransfer(volume);
        };

        if (!stillListedWhereItWas(fileLayer_, v)) {
            QVLog::appendLog(u"Error: Volume %@ doesn't exist", path);
            return failWith(QStringLiteral("Volume doesn't exist"), true);
        }

        QVLog::appendLog(u"Processing volume %@", path);
        const std::shared_ptr<const TransferOptions> options = optionsOf(v);
        if (stoppedByCancel(volume, {}))
            return;
        // The same checks as the command line, before anything is written (the card's stale
        // marker included): a card that can't fit fails here, not half-way with a full disk.
        if (const auto refusal =
                settings.destinations.isEmpty()
                    ? std::nullopt
                    : TransferRequest::problem(fileLayer_, path, settings.destinations,
                                               options->onlyMovies)) {
            QVLog::appendLog(u"Transfer of %@ refused: %@", path, refusal->line);
            const QString name = v.name();
            const QString reason = refusal->sentence();
            onMainThread(
                [this, name, reason] {
                    view_.showSheet({QStringLiteral("Unable to transfer '%1'").arg(name),
                                     QStringLiteral("OK"),
                                     {},
                                     {},
                                     reason + QStringLiteral(". Nothing was written.")});
                },
                false);
            return failWith(reason, true);
        }
        claimCardMetadata(volume);
        const QString marker = path + u'/' + QString::fromLatin1(CardFiles::kMarker);
        if (fileLayer_.exists(PathText::bytes(marker)))
            fileManager_.removeFile(marker);

        onMainThread([&v] { v.resetProgress(); }, true);
        const bool imageMode = options->diskImage;
        v.startTransferChecks(options->verifySizes, options->verifyChecksums,
                              imageMode || !options->inlineVerification);
        v.setStatus(QVVolume::Copying);
        updates_.changed(volume);
        onMainThread(
            [this] {
                reloadVolumeList();
                updateToolbarForTableSelection();
            },
            true);

        const QStringList reserved =
            reserveDestinations(settings.destinations, options->projectTitle, v);
        if (stoppedByCancel(volume, reserved))
            return;

        if (options->onlyMovies)
            v.checkForQuickTimeMovies(fileLayer_);
        else
            v.setHasQTMovies(false);
        v.timeEstimate().start();

        // Reservation already holds each path in the reserved queue; a folder on disk speaks
        // for itself, an image path stays held until the transfer ends.
        for (const QString& destination : reserved) {
            if (!imageMode) {
                // Claimed by reservation already, unless the claim failed; then the copy
                // names the destination that can't be written.
                const QByteArray folder = PathText::bytes(destination);
                if (fileLayer_.makeParents(folder) != 0 ||
                    (fileLayer_.makeFolder(folder) != 0 && errno != EEXIST))
                    QVLog::appendLog(u"Unable to create folder %@", destination);
                removeFromReservedFileQueue({destination});
            }
            v.addDestination(destination);
        }
        if (stoppedByCancel(volume, reserved))
            return;

        const std::uint64_t usage = v.totalMediaUsage(fileLayer_);
        QVLog::appendLogAndPrint(u"Volume media usage: %llu",
                                 static_cast<unsigned long long>(usage));
        // Copies read back from their medium count as much again per destination.
        const double readBack = !imageMode && v.transferChecks().fromMedium
                                    ? double(usage) * double(reserved.size())
                                    : 0.0;
        const double maximum = double(transferSize(v)) + readBack;
        onMainThread([&v, maximum] { v.setMaxProgressValue(maximum); }, true);

        if (imageMode) {
            QVLog::appendLog(u"Creating disk image...");
            images_.begin(v, reserved);
            // However this ends, no check waits for an image that will never be written.
            const std::shared_ptr<void> settle(nullptr, [&](void*) {
                images_.written(reserved);
                images_.end(v);
            });
            for (const QString& image : reserved) {
                const bool created = stages_.createDiskImage(image, path);
                images_.written({image});
                if (!created) {
                    QVLog::appendLog(u"Failed to create disk image.");
                    // The images not attempted are no longer held either.
                    removeFromReservedFileQueue(reserved);
                    return failWith(QStringLiteral("Unable to create disk image"), false);
                }
                // A card pulled or cancelled while being read is not verified.
                if (stoppedByCancel(volume, reserved))
                    return;
                QVLog::appendLog(u"Disk image created successfully.");
                images_.begin(v);
                services_.threads.start([this, volume, image] {
                    try {
                        stages_.verifyVolume(volume, image);
                    } catch (const std::exception& exception) {
                        QVException::logException(exception, "verifyVolume:");
                    }
                    images_.end(*volume);
                });
            }
            return;
        }

        QVLog::appendLog(u"Starting disk copy...");
        if (stages_.copyDisk(path, v.destinations(), volume))
            return;
        QVLog::appendLog(u"Error: Can't copy disk %@", path);
        failWith(QStringLiteral("Can't copy disk"), false);
    } catch (const std::exception& exception) {
        QVException::logException(exception, "processVolumeWithSettings:");
    }
}

QStringList AppController::reserveDestinations(const QStringList& destinations,
                                               const QString& projectTitle, QVVolume& volume) {
    QStringList reserved;
    for (const QString& destination : destinations)
        reserved << reserveDestination(destination, projectTitle, volume);
    return reserved;
}

QString AppController::reserveDestination(const QString& destination, const QString& projectTitle,
                                          QVVolume& volume) {
    const std::shared_ptr<const TransferOptions> options = optionsOf(volume);
    return reservation_.reserve(destination, projectTitle, volume, options->fields,
                                options->diskImage);
}
