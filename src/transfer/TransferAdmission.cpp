// Admission of volumes to transfer: destination choice, the waiting list, the end of a turn,
// the done-marker check of a freshly listed card, and what a card keeps across mounts.
#include "TransferAdmission.h"

#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <utility>

#include "AppView.h"
#include "CardFiles.h"
#include "ControllerContext.h"
#include "ControllerFlow.h"
#include "DestinationReservation.h"
#include "DiskImages.h"
#include "DiskInformation.h"
#include "FileLayer.h"
#include "MainThread.h"
#include "MetadataNaming.h"
#include "PathText.h"
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
#include "WorkerThreads.h"

namespace {

const QString kMarkerName = QString::fromLatin1(CardFiles::kMarker);

std::optional<timespec> modificationTime(FileLayer& files, const QByteArray& path) {
    struct stat status {};
    if (files.linkStatus(path, &status) != 0)
        return std::nullopt;
    return status.st_mtim;
}

bool isLater(const timespec& a, const timespec& b) {
    return a.tv_sec != b.tv_sec ? a.tv_sec > b.tv_sec : a.tv_nsec > b.tv_nsec;
}

// Depth first over visible entries (system litter comes and goes), not entering packages; true
// at the first item newer than the marker.
bool containsItemNewerThan(FileLayer& files, const QByteArray& folder, const timespec& marker) {
    std::vector<FileLayer::Entry> entries;
    files.listFolder(folder, &entries);
    for (const FileLayer::Entry& entry : entries) {
        if (entry.name.startsWith('.'))
            continue;
        const QByteArray path = folder + '/' + entry.name;
        struct stat status {};
        if (files.linkStatus(path, &status) != 0)
            continue;
        if (isLater(status.st_mtim, marker))
            return true;
        if (S_ISDIR(status.st_mode) &&
            !QVFileManager(files).isPackageAtPath(PathText::display(path)) &&
            containsItemNewerThan(files, path, marker))
            return true;
    }
    return false;
}

}  // namespace

QStringList TransferAdmission::chooseDestinations(const QVVolume& volume) {
    std::vector<DestinationEntry> list = c_.volumes.destinations();
    if (list.empty()) {
        list = {SettingsKey::defaultDestination()};
        c_.volumes.setDestinations(list);
        Preferences(c_.settings).setDestinationList(list);
    } else if (std::none_of(list.begin(), list.end(),
                            [](const DestinationEntry& entry) { return entry.isSelected(); })) {
        c_.onMainThread(
            [this] {
                c_.view.showSheet({QStringLiteral("No destinations enabled"),
                                   QStringLiteral("OK"),
                                   {},
                                   {},
                                   QStringLiteral("You must enable at least one destination in "
                                                  "order to transfer this volume.")});
            },
            false);
    }
    const auto outputs = volume.outputs();
    const bool restricted = outputs && !outputs->isEmpty();
    QStringList chosen;
    for (const DestinationEntry& entry : list) {
        if (!entry.isSelected() || entry.path.isEmpty())
            continue;
        if (restricted && entry.path != outputs->first())
            continue;
        chosen << entry.path;
    }
    return chosen;
}

void TransferAdmission::startWorker(const std::shared_ptr<QVVolume>& volume,
                                    const QStringList& destinations) {
    // The settings count from here to the transfer's end.
    volume->setTransferOptions(TransferOptions::read(c_.settings));
    const TransferSettings settings{volume, destinations};
    // processVolumeWithSettings catches what it throws itself.
    c_.services.threads.start([this, settings] { c_.flow.processVolumeWithSettings(settings); });
}

void TransferAdmission::addVolumeToQueue(const std::shared_ptr<QVVolume>& volume) {
    try {
        const qint64 limit = std::max<qint64>(1, c_.settings.get(SettingsKey::concurrentThreads));
        // Giving back a busy volume's slot before choosing keeps the count honest.
        c_.queue.giveBackSlotOf(volume->status());
        volume->reset();
        const QStringList destinations = chooseDestinations(*volume);
        if (c_.queue.admit(volume, limit))
            startWorker(volume, destinations);
    } catch (const std::exception& exception) {
        QVException::logException(exception, "addVolumeToQueue:");
    }
}

void TransferAdmission::processNextQueueItem() {
    try {
        const std::shared_ptr<QVVolume> volume = c_.queue.takeNext();
        if (!volume)
            return;
        volume->reset();
        startWorker(volume, chooseDestinations(*volume));
    } catch (const std::exception& exception) {
        QVException::logException(exception, "processNextQueueItem");
    }
}

void TransferAdmission::incrementThreadCount() {
    c_.queue.increment();
}

void TransferAdmission::decrementThreadCount() {
    c_.queue.decrement();
}

void TransferAdmission::releaseSlot(QVVolume& volume) {
    decrementThreadCount();
    volume.decrementThreadCount();
    if (volume.threadCount() == 0)
        processNextQueueItem();
}

void TransferAdmission::checkDoneFlagForVolume(const std::shared_ptr<QVVolume>& volume) {
    try {
        if (volume->isFolder())
            return;
        const QString root = volume->path();
        const QString marker = root + u'/' + kMarkerName;
        const auto markerTime = modificationTime(c_.files, PathText::bytes(marker));
        if (!markerTime)
            return;
        if (containsItemNewerThan(c_.files, PathText::bytes(root), *markerTime)) {
            c_.fileManager.removeFile(marker);
            // New clips since its transfer: a new reel, numbered afresh.
            MetadataNaming::forgetCard(c_.settings, cardIdentity(*volume));
            volume->populateDefaultMetadata(c_.settings);
            c_.publish(volume);
            return;
        }
        if (volume->status() < QVVolume::Copying)
            volume->setStatus(QVVolume::Done);
        c_.publish(volume);
    } catch (const std::exception& exception) {
        QVException::logException(exception, "checkDoneFlagForVolume:");
    }
}

QString TransferAdmission::cardIdentity(const QVVolume& volume) const {
    if (volume.isFolder())
        return {};
    const std::optional<PropertyList> info = c_.services.disks.forMountPoint(volume.path());
    if (!info)
        return {};
    const QString filesystem = (*info)["VolumeUUID"].toString();
    return filesystem.isEmpty() ? (*info)["DiskUUID"].toString() : filesystem;
}

void TransferAdmission::recallCardMetadata(QVVolume& volume) {
    if (const auto values = MetadataNaming::recallCard(c_.settings, cardIdentity(volume)))
        volume.restoreMetadata(*values);
}

void TransferAdmission::claimCardMetadata(const std::shared_ptr<QVVolume>& volume) {
    // The day rule compares with the previous transfer's date: numbers first.
    const MetadataValues values = volume->claimMetadata(c_.settings);
    MetadataNaming::rememberCard(c_.settings, cardIdentity(*volume), values);
    c_.settings.set(SettingsKey::lastTransferDate, PropertyList(c_.services.clock->now()));
    for (const auto& listed : c_.volumes.volumes()) {
        if (listed != volume && listed->refreshListedMetadata(c_.settings))
            c_.publish(listed);
    }
}
