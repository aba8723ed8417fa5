// The worker that takes an admitted volume to the start of its copy, and destination
// reservation.
#include "VolumeProcessing.h"

#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include "AppView.h"
#include "CardFiles.h"
#include "ControllerContext.h"
#include "ControllerFlow.h"
#include "DestinationReservation.h"
#include "DiskImages.h"
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
#include "Services.h"
#include "SettingsStore.h"
#include "TransferOptions.h"
#include "TransferProgress.h"
#include "TransferQueue.h"
#include "TransferRequest.h"
#include "TransferSettings.h"
#include "TransferStages.h"
#include "VolumeList.h"
#include "VolumeUpdates.h"
#include "VolumeVerification.h"
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

void VolumeProcessing::markFailed(const std::shared_ptr<QVVolume>& volume, const QString& reason) {
    volume->setStatus(QVVolume::Failed);
    volume->setErrorString(reason);
    c_.publish(volume, true);
}

void VolumeProcessing::postTransferFailed(const QVVolume& volume) {
    c_.services.notifier.postGrowlNotification(QStringLiteral("Transfer Failed"), volume.name(),
                                               QString(), QStringLiteral("Transfer Failed"));
}

bool VolumeProcessing::stoppedByCancel(const std::shared_ptr<QVVolume>& volume,
                                       const QStringList& reserved) {
    if (volume->status() != QVVolume::Cancelled)
        return false;
    // Folders claimed already are marked as not complete, like those of a copy cut short.
    if (volume->destinations().isEmpty() && !c_.inImageMode(*volume)) {
        for (const QString& folder : reserved)
            volume->addDestination(folder);
    }
    c_.flow.markEndedEarly(volume, volume->path(), c_.services.clock->now());
    c_.flow.stopCancelledTransfer(volume, reserved);
    return true;
}

void VolumeProcessing::processVolumeWithSettings(const TransferSettings& settings) {
    try {
        c_.onMainThread([this] { c_.flow.refreshTotalRemainingSpace(); }, false);
        const std::shared_ptr<QVVolume> volume = settings.volume;
        QVVolume& v = *volume;
        v.incrementThreadCount();
        const QString path = v.path();
        const auto failWith = [&](const QString& reason, bool notify) {
            markFailed(volume, reason);
            if (notify)
                postTransferFailed(v);
            c_.flow.releaseSlot(v);
            c_.flow.endTransfer(volume);
        };

        if (!stillListedWhereItWas(c_.files, v)) {
            QVLog::appendLog(u"Error: Volume %@ doesn't exist", path);
            return failWith(QStringLiteral("Volume doesn't exist"), true);
        }

        QVLog::appendLog(u"Processing volume %@", path);
        const std::shared_ptr<const TransferOptions> options = c_.optionsOf(v);
        if (stoppedByCancel(volume, {}))
            return;
        // The same checks as the command line, before anything is written (the card's stale
        // marker included): a card that can't fit fails here, not half-way with a full disk.
        if (const auto refusal =
                settings.destinations.isEmpty()
                    ? std::nullopt
                    : TransferRequest::problem(c_.files, path, settings.destinations,
                                               options->onlyMovies)) {
            QVLog::appendLog(u"Transfer of %@ refused: %@", path, refusal->line);
            const QString name = v.name();
            const QString reason = refusal->sentence();
            c_.onMainThread(
                [this, name, reason] {
                    c_.view.showSheet({QStringLiteral("Unable to transfer '%1'").arg(name),
                                       QStringLiteral("OK"),
                                       {},
                                       {},
                                       reason + QStringLiteral(". Nothing was written.")});
                },
                false);
            return failWith(reason, true);
        }
        c_.flow.claimCardMetadata(volume);
        const QString marker = path + u'/' + QString::fromLatin1(CardFiles::kMarker);
        if (c_.files.exists(PathText::bytes(marker)))
            c_.fileManager.removeFile(marker);

        c_.onMainThread([&v] { v.resetProgress(); }, true);
        const bool imageMode = options->diskImage;
        v.startTransferChecks(options->verifySizes, options->verifyChecksums,
                              imageMode || !options->inlineVerification);
        v.setStatus(QVVolume::Copying);
        c_.updates.changed(volume);
        c_.onMainThread(
            [this] {
                c_.flow.reloadVolumeList();
                c_.flow.updateToolbarForTableSelection();
            },
            true);

        const QStringList reserved =
            reserveDestinations(settings.destinations, options->projectTitle, v);
        if (stoppedByCancel(volume, reserved))
            return;

        if (options->onlyMovies)
            v.checkForQuickTimeMovies(c_.files);
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
                if (c_.files.makeParents(folder) != 0 ||
                    (c_.files.makeFolder(folder) != 0 && errno != EEXIST))
                    QVLog::appendLog(u"Unable to create folder %@", destination);
                c_.reservation.release({destination});
            }
            v.addDestination(destination);
        }
        if (stoppedByCancel(volume, reserved))
            return;

        const std::uint64_t usage = v.totalMediaUsage(c_.files);
        QVLog::appendLogAndPrint(u"Volume media usage: %llu",
                                 static_cast<unsigned long long>(usage));
        // Copies read back from their medium count as much again per destination.
        const double readBack = !imageMode && v.transferChecks().fromMedium
                                    ? double(usage) * double(reserved.size())
                                    : 0.0;
        const double maximum = double(transferSize(v)) + readBack;
        c_.onMainThread([&v, maximum] { v.setMaxProgressValue(maximum); }, true);

        if (imageMode) {
            QVLog::appendLog(u"Creating disk image...");
            c_.images.begin(v, reserved);
            // However this ends, no check waits for an image that will never be written.
            const std::shared_ptr<void> settle(nullptr, [&](void*) {
                c_.images.written(reserved);
                c_.images.end(v);
            });
            for (const QString& image : reserved) {
                const bool created = c_.stages.createDiskImage(image, path);
                c_.images.written({image});
                if (!created) {
                    QVLog::appendLog(u"Failed to create disk image.");
                    // The images not attempted are no longer held either.
                    c_.reservation.release(reserved);
                    return failWith(QStringLiteral("Unable to create disk image"), false);
                }
                // A card pulled or cancelled while being read is not verified.
                if (stoppedByCancel(volume, reserved))
                    return;
                QVLog::appendLog(u"Disk image created successfully.");
                c_.images.begin(v);
                c_.services.threads.start([this, volume, image] {
                    try {
                        c_.stages.verifyVolume(volume, image);
                    } catch (const std::exception& exception) {
                        QVException::logException(exception, "verifyVolume:");
                    }
                    c_.images.end(*volume);
                });
            }
            return;
        }

        QVLog::appendLog(u"Starting disk copy...");
        if (c_.stages.copyDisk(path, v.destinations(), volume))
            return;
        QVLog::appendLog(u"Error: Can't copy disk %@", path);
        failWith(QStringLiteral("Can't copy disk"), false);
    } catch (const std::exception& exception) {
        QVException::logException(exception, "processVolumeWithSettings:");
    }
}

QStringList VolumeProcessing::reserveDestinations(const QStringList& destinations,
                                                  const QString& projectTitle, QVVolume& volume) {
    QStringList reserved;
    for (const QString& destination : destinations)
        reserved << reserveDestination(destination, projectTitle, volume);
    return reserved;
}

QString VolumeProcessing::reserveDestination(const QString& destination,
                                             const QString& projectTitle, QVVolume& volume) {
    const std::shared_ptr<const TransferOptions> options = c_.optionsOf(volume);
    return c_.reservation.reserve(destination, projectTitle, volume, options->fields,
                                  options->diskImage);
}

std::uint64_t VolumeProcessing::transferSize(QVVolume& volume) const {
    return c_.inImageMode(volume) ? c_.images.sizeOf(volume) : volume.totalMediaUsage(c_.files);
}
