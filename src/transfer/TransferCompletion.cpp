#include "TransferCompletion.h"

#include <sys/stat.h>

#include <QFile>

#include "AppView.h"
#include "ChecksumManifest.h"
#include "ControllerContext.h"
#include "ControllerFlow.h"
#include "DestinationReservation.h"
#include "DiskImages.h"
#include "DiskInformation.h"
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
#include "VolumeActions.h"
#include "VolumeList.h"
#include "VolumeUpdates.h"
#include "VolumeVerification.h"
#include "WorkerThreads.h"

namespace {

// Every destination holds the whole card: a file-mode copy by its ledger, an image by its
// verification (which fails the volume otherwise).
bool endedWhole(const QVVolume& volume) {
    const VolumeStatus status = volume.status();
    if (status != QVVolume::Done && status != QVVolume::Finishing)
        return false;
    const QStringList destinations = volume.destinations();
    const std::shared_ptr<TransferLedger> ledger = volume.ledger();
    if (destinations.isEmpty() || !ledger)
        return !destinations.isEmpty();
    if (ledger->destinationCount() != std::size_t(destinations.size()))
        return false;
    for (std::size_t i = 0; i < ledger->destinationCount(); ++i) {
        if (!ledger->isComplete(i))
            return false;
    }
    return true;
}

}  // namespace

void TransferCompletion::finishVolume(const std::shared_ptr<QVVolume>& volume) {
    QVVolume& v = *volume;
    c_.updates.changed(volume);
    c_.onMainThread(
        [this] {
            c_.flow.reloadVolumeList();
            c_.flow.updateToolbarForTableSelection();
        },
        true);
    c_.onMainThread([this] { c_.flow.refreshTotalRemainingSpace(); }, false);
    QVLog::appendLog(u"Finishing volume %@", v.path());
    c_.reservation.release(v.destinations());
    c_.progress.forget(v);
    c_.flow.releaseSlot(v);
    const VolumeStatus status = v.status();
    if (status != QVVolume::Failed && status != QVVolume::Cancelled)
        c_.services.threads.start([this, volume] { c_.flow.performPostActions(volume); });
    else
        endTransfer(volume);
    // A finish may start one more waiting volume than the limit allows; that is kept.
    c_.flow.processNextQueueItem();
}

bool TransferCompletion::isBeingRemoved(const std::shared_ptr<QVVolume>& volume) {
    const std::lock_guard lock(removalMutex_);
    return removalRequests_.count(volume) > 0;
}

void TransferCompletion::endTransfer(const std::shared_ptr<QVVolume>& volume) {
    if (volume->markTransferEnded())
        announceEnd(volume);
}

void TransferCompletion::announceEnd(const std::shared_ptr<QVVolume>& volume) {
    volume->endTransferChecks(endedWhole(*volume));
    {
        const std::lock_guard lock(removalMutex_);
        removalRequests_.erase(volume);
    }
    c_.updates.changed(volume);
    // The ended transfer no longer counts in the title, its destinations have less room, and
    // Erase is offered from now on for a selected card that ended verified.
    c_.onMainThread(
        [this] {
            c_.flow.showOverallProgress();
            c_.flow.refreshTotalRemainingSpace();
            c_.flow.updateToolbarForTableSelection();
        },
        false);
    c_.view.transferDidEnd(volume);
}

// A cancelled volume stops where it stands: no manifest, no outcome, no post actions. The
// user's cancel has given its slots back already (cancelVolume); a card pulled mid-transfer
// (volumeDidUnmount) has not, so they are given back here. Either way the freed slot goes to
// the next waiting volume.
void TransferCompletion::stopCancelledTransfer(const std::shared_ptr<QVVolume>& volume,
                                               const QStringList& reserved) {
    if (!volume->markTransferEnded())
        return;
    QVVolume& v = *volume;
    c_.reservation.release(reserved);
    bool remove = false;
    {
        const std::lock_guard lock(removalMutex_);
        remove = removalRequests_.erase(volume) > 0;
    }
    // "Confirm & Remove" ran while the copy was still writing; what it wrote since goes too.
    if (remove) {
        for (const QString& destination : v.destinations()) {
            QVLog::appendLog(u"Removing path %@", destination);
            removeTransferredFiles(destination);
        }
    }
    if (v.threadCount() > 0)
        cancelVolume(v);
    c_.onMainThread(
        [this] {
            c_.flow.reloadVolumeList();
            c_.flow.updateToolbarForTableSelection();
        },
        true);
    c_.flow.processNextQueueItem();
    announceEnd(volume);
}

// A destination folder may hold a later transfer's copy, reserved inside it under a number
// because the folder already existed, perhaps still being written by another program: anything
// at the top named like such a number stays. Names are taken as the file system has them.
void TransferCompletion::removeTransferredFiles(const QString& destination) {
    const QByteArray folder = QFile::encodeName(destination);
    struct stat status {};
    if (c_.files.linkStatus(folder, &status) != 0)
        return;
    if (!S_ISDIR(status.st_mode)) {
        c_.files.removeFile(folder);
        return;
    }
    std::vector<FileLayer::Entry> entries;
    c_.files.listFolder(folder, &entries);
    for (const FileLayer::Entry& entry : entries) {
        if (!ChecksumManifest::isReservationNumber(entry.name))
            c_.files.removeTree(folder + '/' + entry.name);
    }
    c_.files.removeFolder(folder);
}

void TransferCompletion::cancelVolume(QVVolume& volume) {
    for (qint64 n = volume.threadCount(); n > 0; --n) {
        volume.decrementThreadCount();
        c_.flow.decrementThreadCount();
    }
    c_.verification.cancel();
    c_.onMainThread([this] { c_.flow.refreshTotalRemainingSpace(); }, false);
}

void TransferCompletion::incrementFailureCountForVolume(QVVolume& volume) {
    const auto info = c_.services.disks.forMountPoint(volume.path());
    if (!info)
        return;
    QString key = (*info)["DiskUUID"].toString();
    if (key.isEmpty())
        key = (*info)["VolumeUUID"].toString();
    if (key.isEmpty())
        return;
    // Two cards failing at once, in this process or another, must not lose a count.
    c_.settings.transaction([&] {
        PropertyList::Dictionary counts = c_.settings.get(SettingsKey::failureCounts);
        const auto found = counts.find(key);
        const qint64 count = found == counts.end() ? 0 : found->second.toInteger();
        counts[key] = PropertyList(count + 1);
        c_.settings.set(SettingsKey::failureCounts, counts);
    });
}

void TransferCompletion::cancelSelectedTransfers() {
    const int answer = c_.view.showSheet(
        {QStringLiteral("Are you sure you wish to abort this transfer?"), QStringLiteral("Confirm"),
         QStringLiteral("Cancel"), QStringLiteral("Confirm & Remove"),
         QStringLiteral("You can remove transferred files by choosing Confirm & Remove.")});
    if (answer == 0)
        return;
    const bool remove = answer == -1;
    for (const auto& volume : c_.selectedVolumes()) {
        QVVolume& v = *volume;
        // A card already done (or finishing) beside a busy one in the selection keeps its
        // verified copies: the user may have erased the card on the strength of them.
        if (v.status() < QVVolume::Idle || v.status() > QVVolume::Unmounting)
            continue;
        QVLog::appendLog(u"User cancelled transfer for volume %@", v.path());
        v.setStatus(QVVolume::Cancelled);
        c_.queue.withdraw(volume);  // one still waiting for its turn never starts
        cancelVolume(v);
        if (remove) {
            {
                const std::lock_guard lock(removalMutex_);
                removalRequests_.insert(volume);
            }
            QVLog::appendLog(u"User chose to remove transferred files for volume %@", v.path());
            for (const QString& destination : v.destinations()) {
                QVLog::appendLog(u"Removing path %@", destination);
                removeTransferredFiles(destination);
            }
        }
        c_.flow.updateToolbarForTableSelection();
    }
    ToolbarState state = c_.flow.toolbarForSelection();
    const ToolbarState start = c_.flow.transferItem(false);
    state.transferCancels = start.transferCancels;
    state.transferLabel = start.transferLabel;
    state.transferImage = start.transferImage;
    c_.view.setToolbarState(state);
    c_.flow.reloadVolumeList();
}

bool TransferCompletion::stopRunningTransfers() {
    bool stopped = false;
    for (const auto& volume : c_.volumes.volumes()) {
        const VolumeStatus status = volume->status();
        if (status < QVVolume::Copying || status > QVVolume::Unmounting)
            continue;
        volume->setErrorString(QStringLiteral("stopped before it was verified"));
        volume->setStatus(QVVolume::Cancelled);
        cancelVolume(*volume);
        stopped = true;
    }
    return stopped;
}

bool TransferCompletion::applicationShouldTerminate() {
    const std::vector<std::shared_ptr<QVVolume>> volumes = c_.volumes.volumes();
    const bool busy = std::any_of(volumes.begin(), volumes.end(), [](const auto& volume) {
        const VolumeStatus status = volume->status();
        return status >= QVVolume::Copying && status <= QVVolume::Formatting;
    });
    if (!busy)
        return true;
    return c_.view.showSheet(
               {QStringLiteral("File operations are in progress. Are you sure you wish to quit?"),
                QStringLiteral("Quit"), QStringLiteral("Cancel"), QString(),
                QStringLiteral("This will cancel any transfers."), SheetRequest::Icon::Warning,
                0}) == 1;
}
