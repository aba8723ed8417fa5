// The end of a volume's transfer: finishing, cancelling, failure counts, the quit guard and
// the actions after a successful transfer.
#include <sys/stat.h>

#include <QFile>

#include "AppController.h"
#include "ChecksumManifest.h"
#include "DiskInformation.h"
#include "MainThread.h"
#include "Preferences.h"
#include "QVException.h"
#include "QVFileManager.h"
#include "QVLog.h"
#include "SettingsStore.h"
#include "VolumeActions.h"
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

void AppController::finishVolume(const std::shared_ptr<QVVolume>& volume) {
    QVVolume& v = *volume;
    updates_.changed(volume);
    onMainThread(
        [this] {
            reloadVolumeList();
            updateToolbarForTableSelection();
        },
        true);
    onMainThread([this] { refreshTotalRemainingSpace(); }, false);
    QVLog::appendLog(u"Finishing volume %@", v.path());
    removeFromReservedFileQueue(v.destinations());
    progress_.forget(v);
    releaseSlot(v);
    const VolumeStatus status = v.status();
    if (status != QVVolume::Failed && status != QVVolume::Cancelled)
        services_.threads.start([this, volume] { performPostActions(volume); });
    else
        endTransfer(volume);
    // A finish may start one more waiting volume than the limit allows; that is kept.
    processNextQueueItem();
}

void AppController::endTransfer(const std::shared_ptr<QVVolume>& volume) {
    if (volume->markTransferEnded())
        announceEnd(volume);
}

void AppController::announceEnd(const std::shared_ptr<QVVolume>& volume) {
    volume->endTransferChecks(endedWhole(*volume));
    {
        const std::lock_guard lock(removalMutex_);
        removalRequests_.erase(volume);
    }
    updates_.changed(volume);
    // The ended transfer no longer counts in the title, its destinations have less room, and
    // Erase is offered from now on for a selected card that ended verified.
    onMainThread(
        [this] {
            showOverallProgress();
            refreshTotalRemainingSpace();
            updateToolbarForTableSelection();
        },
        false);
    view_.transferDidEnd(volume);
}

// A cancelled volume stops where it stands: no manifest, no outcome, no post actions. The
// user's cancel has given its slots back already (cancelVolume); a card pulled mid-transfer
// (volumeDidUnmount) has not, so they are given back here. Either way the freed slot goes to
// the next waiting volume.
void AppController::stopCancelledTransfer(const std::shared_ptr<QVVolume>& volume,
                                          const QStringList& reserved) {
    if (!volume->markTransferEnded())
        return;
    QVVolume& v = *volume;
    removeFromReservedFileQueue(reserved);
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
    onMainThread(
        [this] {
            reloadVolumeList();
            updateToolbarForTableSelection();
        },
        true);
    processNextQueueItem();
    announceEnd(volume);
}

// A destination folder may hold a later transfer's copy, reserved inside it under a number
// because the folder already existed, perhaps still being written by another program: anything
// at the top named like such a number stays. Names are taken as the file system has them.
void AppController::removeTransferredFiles(const QString& destination) {
    const QByteArray folder = QFile::encodeName(destination);
    struct stat status {};
    if (fileLayer_.linkStatus(folder, &status) != 0)
        return;
    if (!S_ISDIR(status.st_mode)) {
        fileLayer_.removeFile(folder);
        return;
    }
    std::vector<FileLayer::Entry> entries;
    fileLayer_.listFolder(folder, &entries);
    for (const FileLayer::Entry& entry : entries) {
        if (!ChecksumManifest::isReservationNumber(entry.name))
            fileLayer_.removeTree(folder + '/' + entry.name);
    }
    fileLayer_.removeFolder(folder);
}

void AppController::cancelVolume(QVVolume& volume) {
    for (qint64 n = volume.threadCount(); n > 0; --n) {
        volume.decrementThreadCount();
        decrementThreadCount();
    }
    verification_.cancel();
    onMainThread([this] { refreshTotalRemainingSpace(); }, false);
}

void AppController::incrementFailureCountForVolume(QVVolume& volume) {
    const auto info = services_.disks.forMountPoint(volume.path());
    if (!info)
        return;
    QString key = (*info)["DiskUUID"].toString();
    if (key.isEmpty())
        key = (*info)["VolumeUUID"].toString();
    if (key.isEmpty())
        return;
    // Two cards failing at once, in this process or another, must not lose a count.
    settings_.transaction([&] {
        PropertyList::Dictionary counts = settings_.get(SettingsKey::failureCounts);
        const auto found = counts.find(key);
        const qint64 count = found == counts.end() ? 0 : found->second.toInteger();
        counts[key] = PropertyList(count + 1);
        settings_.set(SettingsKey::failureCounts, counts);
    });
}

void AppController::cancelSelectedTransfers() {
    const int answer = view_.showSheet(
        {QStringLiteral("Are you sure you wish to abort this transfer?"), QStringLiteral("Confirm"),
         QStringLiteral("Cancel"), QStringLiteral("Confirm & Remove"),
         QStringLiteral("You can remove transferred files by choosing Confirm & Remove.")});
    if (answer == 0)
        return;
    const bool remove = answer == -1;
    for (const auto& volume : selectedVolumes()) {
        QVVolume& v = *volume;
        // A card already done (or finishing) beside a busy one in the selection keeps its
        // verified copies: the user may have erased the card on the strength of them.
        if (v.status() < QVVolume::Idle || v.status() > QVVolume::Unmounting)
            continue;
        QVLog::appendLog(u"User cancelled transfer for volume %@", v.path());
        v.setStatus(QVVolume::Cancelled);
        queue_.withdraw(volume);  // one still waiting for its turn never starts
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
        updateToolbarForTableSelection();
    }
    ToolbarState state = toolbarForSelection();
    state.transferLabel = transferItem(false).transferLabel;
    state.transferImage = transferItem(false).transferImage;
    view_.setToolbarState(state);
    reloadVolumeList();
}

bool AppController::stopRunningTransfers() {
    bool stopped = false;
    for (const auto& volume : dataArray()) {
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

bool AppController::applicationShouldTerminate() {
    const std::vector<std::shared_ptr<QVVolume>> volumes = dataArray();
    const bool busy = std::any_of(volumes.begin(), volumes.end(), [](const auto& volume) {
        const VolumeStatus status = volume->status();
        return status >= QVVolume::Copying && status <= QVVolume::Formatting;
    });
    if (!busy)
        return true;
    return view_.showSheet(
               {QStringLiteral("File operations are in progress. Are you sure you wish to quit?"),
                QStringLiteral("Quit"), QStringLiteral("Cancel"), QString(),
                QStringLiteral("This will cancel any transfers."), SheetRequest::Icon::Warning,
                0}) == 1;
}

void AppController::eject() {
    std::vector<std::shared_ptr<QVVolume>> folders;
    for (const auto& volume : selectedVolumes()) {
        if (volume->isFolder() || volume->isRemoved())
            folders.push_back(volume);
        else
            ejectVolume(*volume);
    }
    // A folder (or a card already pulled) is ejected by dropping it from the list; cards leave
    // through their unmount.
    volumes_.remove(folders);
    reloadVolumeList();
}

bool AppController::ejectVolume(QVVolume& volume) {
    QString error;
    if (services_.volumes.unmountAndEject(volume.path(), &error))
        return true;
    QVLog::appendLog(u"Unable to eject %@: %@", volume.path(), error);
    return false;
}

std::optional<QString> AppController::eraseRefusal(const QVVolume& volume) const {
    if (volume.isFolder())
        return QStringLiteral("it is a folder, not a card");
    switch (volume.status()) {
        case QVVolume::Done:
            break;
        case QVVolume::Failed: {
            const QString error = volume.errorString().value_or(QString());
            return error.isEmpty() ? QStringLiteral("its transfer failed")
                                   : QStringLiteral("its transfer failed (%1)").arg(error);
        }
        case QVVolume::Cancelled:
            return QStringLiteral("its transfer was stopped before it was verified");
        case QVVolume::Unrecognised:
        case QVVolume::Idle:
            return QStringLiteral("it has not been transferred since it was listed");
        default:
            return QStringLiteral("its transfer has not ended");
    }
    // "Done" may also come from the card's own marker of an earlier run: no copy of ours.
    const TransferChecks checks = volume.transferChecks();
    if (!checks.started)
        return QStringLiteral("it has not been transferred since it was listed");
    const std::size_t failed = volume.failedFiles().size();
    if (failed > 0)
        return QStringLiteral("%1 of its files failed verification").arg(failed);
    if (!checks.sizes || !checks.checksums || !checks.fromMedium)
        return QStringLiteral(
            "its copies were not verified (file sizes, and checksums read "
            "back from each copy)");
    if (!checks.ended || !checks.completeAndVerified)
        return QStringLiteral("not every destination holds a complete, verified copy");
    return std::nullopt;
}

namespace {

QString formatName(const QString& type) {
    if (type == u"exfat")
        return QStringLiteral("exFAT");
    if (type == u"vfat")
        return QStringLiteral("FAT");
    return type.isEmpty() ? QStringLiteral("unknown format") : type;
}

}  // namespace

// What is about to go, and where its verified copies are, so a crew can check before saying yes.
QString AppController::eraseDetails(const QVVolume& volume) const {
    const auto info = services_.disks.forMountPoint(volume.path());
    QString line = QStringLiteral("%1: %2").arg(
        volume.name(), formatName(info ? (*info)["FilesystemType"].toString() : QString()));
    if (info && (*info)["TotalSize"].toInteger() > 0)
        line += QStringLiteral(", ") +
                QVFileManager::formatFileSize(double((*info)["TotalSize"].toInteger()));
    line += QStringLiteral(", at %1").arg(volume.path());
    for (const QString& copy : volume.destinations())
        line += QStringLiteral("\n    verified copy: %1").arg(copy);
    return line;
}

void AppController::erase() {
    const auto selected = selectedVolumes();
    if (selected.empty())
        return;
    QStringList refused;
    QStringList reasons;
    for (const auto& volume : selected) {
        if (const auto reason = eraseRefusal(*volume)) {
            refused << volume->name();
            reasons << QStringLiteral("%1: %2.").arg(volume->name(), *reason);
        }
    }
    if (!refused.isEmpty()) {
        QVLog::appendLog(u"Erase refused: %@", reasons.join(u' '));
        view_.showSheet(
            {QStringLiteral("%1 %2 no verified copy")
                 .arg(refused.join(QStringLiteral(", ")),
                      refused.size() == 1 ? QStringLiteral("has") : QStringLiteral("have")),
             QStringLiteral("OK"),
             {},
             {},
             reasons.join(u'\n') + QStringLiteral("\nNothing was erased.")});
        return;
    }
    const bool one = selected.size() == 1;
    QStringList details{QStringLiteral("This will permanently remove all data.")};
    for (const auto& volume : selected)
        details << eraseDetails(*volume);
    // Return must never erase: Cancel is the default here.
    const int answer =
        view_.showSheet({QStringLiteral("Are you sure you wish to erase %1 volume%2?")
                             .arg(one ? QStringLiteral("this") : QStringLiteral("these"),
                                  one ? QString() : QStringLiteral("s")),
                         QStringLiteral("Erase"),
                         QStringLiteral("Cancel"),
                         {},
                         details.join(QStringLiteral("\n\n")),
                         SheetRequest::Icon::Warning,
                         0});
    if (answer != 1)
        return;
    for (const auto& volume : selected)
        eraseVolume(volume);
}

void AppController::eraseVolume(const std::shared_ptr<QVVolume>& volume) {
    ToolbarState state = toolbarForSelection();
    state.eraseEnabled = false;  // until the erase ends
    view_.setToolbarState(state);
    services_.threads.start([this, volume] { eraseVolumeOnThread(volume); });
}

void AppController::eraseVolumeOnThread(const std::shared_ptr<QVVolume>& volume) {
    // Never the disk of a destination: those devices are protected.
    QStringList destinations;
    for (const DestinationEntry& entry : destinationList())
        destinations << entry.path;
    QString error;
    const bool erased =
        !volume->isFolder() &&
        services_.volumes.erase(volume->path(), volume->name(), destinations, &error);
    if (!error.isEmpty())
        QVLog::appendLog(u"Erase of %@: %@", volume->path(), error);
    const QString name = volume->name();
    onMainThread(
        [this, erased, name] {
            if (erased) {
                view_.showSheet({QStringLiteral("'%1' erased successfully").arg(name),
                                 QStringLiteral("OK"),
                                 {},
                                 {},
                                 QStringLiteral("The volume is now ready for use."),
                                 SheetRequest::Icon::Information});
            } else {
                view_.showSheet({QStringLiteral("Unable to erase volume '%1'").arg(name),
                                 QStringLiteral("OK"),
                                 {},
                                 {},
                                 QStringLiteral("The volume may not exist or may be read-only.")});
            }
            updateToolbarForTableSelection();
        },
        true);
}
