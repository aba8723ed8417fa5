// Keeping the volume list in step with the mounted cards and the folders the user adds:
// mounts, unmounts, start-up, the automatic mode, and the Transfer, Ignore and Info commands.
#include "VolumeDiscovery.h"

#include <sys/stat.h>

#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <optional>

#include "AppView.h"
#include "CardsweepVolumeChecker.h"
#include "ControllerContext.h"
#include "ControllerFlow.h"
#include "DestinationReservation.h"
#include "DiskImages.h"
#include "DiskInformation.h"
#include "FileLayer.h"
#include "LocalPaths.h"
#include "MetadataNaming.h"
#include "MountService.h"
#include "PathText.h"
#include "Preferences.h"
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

VolumeDiscovery::~VolumeDiscovery() {
    if (watchingMounts_)
        c_.services.mounts.stopWatching();
}

void VolumeDiscovery::startUp(const QStringList& arguments) {
    Preferences(c_.settings).repairConcurrentThreads();
    ToolbarState disabled = c_.flow.transferItem(false);
    disabled.transferEnabled = false;
    c_.view.setToolbarState(disabled);
    c_.services.threads.start([this] { populateVolumes(); });

    // Destination drives that aren't there are named once, and kept.
    QStringList offline;
    for (const DestinationEntry& entry : c_.volumes.destinations()) {
        const QString drive = c_.services.paths.mediaDriveForPath(entry.path);
        if (drive.isEmpty() || c_.files.exists(PathText::bytes(drive)))
            continue;
        const QString name = QFileInfo(drive).fileName();
        if (!offline.contains(name))
            offline << name;
    }
    if (!offline.isEmpty()) {
        c_.view.showSheet({QStringLiteral("Destinations offline"),
                           QStringLiteral("OK"),
                           {},
                           {},
                           QStringLiteral("The following destination drives are offline:\n%1")
                               .arg(offline.join(u'\n'))});
    }
    c_.flow.refreshTotalRemainingSpace();

    if (!c_.flow.cardsweepEnabled())
        return;
    c_.view.setAutomaticModeSelected(true);
    const qsizetype flag = arguments.indexOf(QStringLiteral("-cardsweepVolume"));
    if (flag < 0 || flag + 1 >= arguments.size())
        return;
    for (const auto& volume : c_.volumes.volumes()) {
        if (volume->path() != arguments[flag + 1])
            continue;
        c_.flow.addVolumeToQueue(volume);
        return;
    }
}

void VolumeDiscovery::populateVolumes() {
    const std::lock_guard lock(populateMutex_);
    const std::vector<MountEntry> media = c_.services.mounts.removableVolumes();
    // A card already listed keeps its record (one mounted while the program starts may be
    // queued by now), and so does any volume being transferred: a new record in its place
    // would hide a transfer that goes on. Folders the user added are dropped.
    std::vector<std::shared_ptr<QVVolume>> before = c_.volumes.volumes();
    const auto take = [&before](const QString& path) -> std::shared_ptr<QVVolume> {
        const auto found = std::find_if(before.begin(), before.end(), [&](const auto& volume) {
            return !volume->isFolder() && volume->path() == path;
        });
        if (found == before.end())
            return nullptr;
        std::shared_ptr<QVVolume> volume = *found;
        before.erase(found);
        return volume;
    };
    c_.volumes.setVolumes({});
    c_.onMainThread([this] { c_.flow.reloadVolumeList(); }, true);
    for (const MountEntry& entry : media) {
        if (const auto listed = take(entry.mountPoint))
            c_.volumes.add(listed);
        else
            addVolumeLocationToList(entry.mountPoint);
    }
    for (const auto& volume : before) {
        const VolumeStatus status = volume->status();
        if (status >= QVVolume::Copying && status != QVVolume::Done &&
            status != QVVolume::Cancelled)
            c_.volumes.add(volume);
    }
    c_.onMainThread([this] { c_.flow.reloadVolumeList(); }, true);
}

bool VolumeDiscovery::isDestinationDrive(const QString& path) const {
    const QString drive = c_.services.paths.mediaDriveForPath(path);
    if (drive.isEmpty())
        return false;
    for (const DestinationEntry& entry : c_.volumes.destinations()) {
        if (c_.services.paths.mediaDriveForPath(entry.path) == drive)
            return true;
    }
    return false;
}

std::shared_ptr<QVVolume> VolumeDiscovery::addVolumeLocationToList(const QString& path,
                                                                   bool isFolder) {
    const QString name = QFileInfo(path).fileName();
    const int type = CardsweepVolumeChecker::verifyVolumeType(c_.files, path);
    const auto volume = QVVolume::volumeWithName(name, path, type, c_.settings, c_.services.clock);
    volume->setIsFolder(isFolder);
    c_.flow.recallCardMetadata(*volume);
    if (isFolder)
        volume->setStatus(QVVolume::Idle);
    const QStringList ignored = c_.settings.get(SettingsKey::ignoredVolumes);
    if (!isDestinationDrive(path) && !ignored.contains(name))
        c_.volumes.add(volume);
    c_.onMainThread([this] { c_.flow.reloadVolumeList(); }, false);
    c_.services.threads.start([this, volume] { c_.flow.checkDoneFlagForVolume(volume); });
    return volume;
}

void VolumeDiscovery::volumeDidMount(const QString& path) {
    // A card pulled mid-transfer and put back is a new card: its old row goes.
    std::vector<std::shared_ptr<QVVolume>> removed;
    for (const auto& listed : c_.volumes.volumes()) {
        if (listed->isRemoved() && listed->path() == path)
            removed.push_back(listed);
    }
    c_.volumes.remove(removed);
    const auto volume = addVolumeLocationToList(path);
    if (volume->type() != -1 && volume->status() == QVVolume::Idle && c_.flow.cardsweepEnabled()) {
        // The list's last volume is queued, which is this one whenever it was listed.
        const auto volumes = c_.volumes.volumes();
        if (!volumes.empty())
            c_.flow.addVolumeToQueue(volumes.back());
    }
    QVLog::appendLog(u"Volume mounted: %@", path);
}

void VolumeDiscovery::volumeDidUnmount(const QString& path) {
    bool interrupted = false;
    const std::shared_ptr<QVVolume> gone = c_.volumes.takeAt(path, [&](QVVolume& volume) {
        const VolumeStatus status = volume.status();
        if (status < QVVolume::Copying || status > QVVolume::Unmounting)
            return volume.isRemoved();
        // Not reset to "Waiting": its worker would keep a slot nobody gives back. Marked
        // cancelled, the worker learns that the card is gone, gives the slot back and reports
        // nothing as verified (stopCancelledTransfer). The row stays, so the crew sees which
        // card it was.
        volume.setErrorString(QStringLiteral("Card removed during transfer"));
        volume.setRemoved();
        volume.setStatus(QVVolume::Cancelled);
        interrupted = true;
        return true;
    });
    if (gone)
        c_.updates.changed(gone);
    c_.onMainThread([this] { c_.flow.reloadVolumeList(); }, true);
    QVLog::appendLogAndPrint(u"Volume unmounted: %@", path);
    if (!interrupted)
        return;
    const QString name = gone->name();
    c_.onMainThread(
        [this, name, path] {
            c_.view.showSheet({QStringLiteral("Transfer interrupted"),
                               QStringLiteral("OK"),
                               {},
                               {},
                               QStringLiteral("The source drive was unmounted mid-transfer.\n\n%1 "
                                              "(%2) was removed before its transfer ended.")
                                   .arg(name, path)});
        },
        false);
}

void VolumeDiscovery::startWatchingMounts() {
    watchingMounts_ = true;
    c_.services.mounts.startWatching([this](const MountEntry& entry, bool mounted) {
        if (!mounted)
            return volumeDidUnmount(entry.mountPoint);
        const auto volumes = c_.volumes.volumes();
        const bool listed = std::any_of(volumes.begin(), volumes.end(), [&](const auto& volume) {
            return volume->path() == entry.mountPoint && !volume->isRemoved();
        });
        if (!listed && c_.services.mounts.isRemovable(entry))
            volumeDidMount(entry.mountPoint);
    });
}

void VolumeDiscovery::transfer() {
    if (c_.flow.selectionIsBusy())
        return c_.flow.cancelSelectedTransfers();
    // Queued here rather than from a thread of its own, so the toolbar that follows already
    // sees each card running or waiting (a second Return cancels, it never starts it twice).
    for (const auto& volume : c_.selectedVolumes()) {
        volume->setStatus(QVVolume::Idle);
        c_.flow.addVolumeToQueue(volume);
    }
    c_.flow.reloadVolumeList();
    c_.flow.updateToolbarForTableSelection();
}

void VolumeDiscovery::openVolumeFromArguments(const QStringList& arguments) {
    const qsizetype flag = arguments.indexOf(QStringLiteral("-cardsweepVolume"));
    if (!c_.flow.cardsweepEnabled() || flag < 0 || flag + 1 >= arguments.size())
        return;
    const QString path = arguments[flag + 1];
    const auto volumes = c_.volumes.volumes();
    const bool listed = std::any_of(volumes.begin(), volumes.end(),
                                    [&](const auto& volume) { return volume->path() == path; });
    // The mount watcher queues what it lists; queuing a listed card again would restart it.
    if (!listed && QFileInfo(path).isDir())
        volumeDidMount(path);
}

void VolumeDiscovery::toggleCardsweep() {
    if (c_.flow.cardsweepEnabled()) {
        c_.view.setAutomaticModeSelected(false);
        c_.flow.stopSetupJob();
        c_.flow.stopListener();
        return;
    }
    c_.view.setAutomaticModeSelected(true);
    c_.flow.startSetupJob();
    c_.flow.startListener();
    for (const auto& volume : c_.volumes.volumes()) {
        const VolumeStatus status = volume->status();
        if (volume->type() != -1 && (status == QVVolume::Idle || status == QVVolume::Cancelled))
            c_.flow.addVolumeToQueue(volume);
    }
}

void VolumeDiscovery::ignore() {
    const auto selected = c_.selectedVolumes();
    if (selected.empty())
        return;
    const bool one = selected.size() == 1;
    const int answer = c_.view.showSheet(
        {QStringLiteral("Are you sure you wish to ignore %1?")
             .arg(one ? QStringLiteral("this volume") : QStringLiteral("these volumes")),
         one ? QStringLiteral("Ignore Volume") : QStringLiteral("Ignore Volumes"),
         QStringLiteral("Cancel"),
         {},
         QStringLiteral("This will hide the volume from the list and prevent Cardsweep from "
                        "launching when this volume is mounted.")});
    if (answer != 1)
        return;
    QStringList names;
    for (const auto& volume : selected)
        names << volume->name();
    const QStringList added = Preferences(c_.settings).ignoreVolumeNames(names);
    std::vector<std::shared_ptr<QVVolume>> dropped;
    for (const auto& volume : selected) {
        if (added.contains(volume->name()) || volume->isRemoved())
            dropped.push_back(volume);
    }
    c_.volumes.remove(dropped);
    c_.flow.reloadVolumeList();
}

void VolumeDiscovery::resetIgnoredVolumes() {
    c_.settings.remove(SettingsKey::ignoredVolumes);
    c_.settings.synchronize();
    c_.services.threads.start([this] { populateVolumes(); });
    c_.view.showSheet({QStringLiteral("Ignored volumes successfully reset"),
                       QStringLiteral("OK"),
                       {},
                       {},
                       QStringLiteral("Previously-ignored volumes will now reappear in the "
                                      "volume list."),
                       SheetRequest::Icon::Information});
}

void VolumeDiscovery::showInfo() {
    const auto selected = c_.selectedVolumes();
    if (selected.empty())
        return;
    const QVVolume& volume = *selected.front();
    const QString path = volume.path();
    FileLayer::Space space;
    const bool known = c_.files.freeSpace(PathText::bytes(path), &space) == 0;
    const double total = known ? double(space.total) : 0;
    const double free = known ? double(space.available) : 0;
    const auto info = c_.services.disks.forMountPoint(path);
    const QString diskUuid = info ? (*info)["DiskUUID"].toString() : QString();
    const QString volumeUuid = info ? (*info)["VolumeUUID"].toString() : QString();
    const QString key = diskUuid.isEmpty() ? volumeUuid : diskUuid;
    const auto counts = c_.settings.get(SettingsKey::failureCounts);
    const auto count = key.isEmpty() ? counts.end() : counts.find(key);
    c_.view.showInfo(volume.name(),
                     {{QStringLiteral("Mount Point"), path},
                      {QStringLiteral("Type"), volume.typeName()},
                      {QStringLiteral("Total Space"), QVFileManager::formatFileSize(total)},
                      {QStringLiteral("Free Space"), QVFileManager::formatFileSize(free)},
                      {QStringLiteral("Disk UUID"), diskUuid},
                      {QStringLiteral("Volume UUID"), volumeUuid},
                      {QStringLiteral("Number of Failures"),
                       QString::number(count == counts.end() ? 0 : count->second.toInteger())}});
}

void VolumeDiscovery::importFolders(const QStringList& folders) {
    for (const QString& folder : folders) {
        const auto volume = addVolumeLocationToList(folder, true);
        if (volume->status() == QVVolume::Idle && c_.flow.cardsweepEnabled())
            c_.flow.addVolumeToQueue(volume);
        QVLog::appendLog(u"Folder added: %@", folder);
    }
}
