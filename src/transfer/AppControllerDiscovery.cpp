// Keeping the volume list in step with the mounted cards and the folders the user adds:
// mounts, unmounts, start-up, the automatic mode, and the Transfer, Ignore and Info commands.
#include <sys/stat.h>

#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <optional>

#include "AppController.h"
#include "CardsweepVolumeChecker.h"
#include "DiskInformation.h"
#include "FileLayer.h"
#include "LocalPaths.h"
#include "MetadataNaming.h"
#include "MountService.h"
#include "PathText.h"
#include "Preferences.h"
#include "QVFileManager.h"
#include "QVLog.h"
#include "SettingsStore.h"
#include "WorkerThreads.h"

bool AppController::cardsweepEnabled() const {
    return automaticForThisRun_ ||
           QFileInfo::exists(launchd_.jobFile(QString::fromLatin1(listenerLabel), true, true));
}

namespace {

// The job running our helper: the listener on every mount, the setup once, or nothing when
// there is no program to run.
std::optional<PropertyList> helperJob(const QString& label, bool setup) {
    const QString helper = LocalPaths::helperProgram(QStringLiteral("CardsweepHelper"));
    if (helper.isEmpty() || !QFileInfo(helper).isAbsolute()) {
        return std::nullopt;
    }
    PropertyList::Dictionary job;
    job[QStringLiteral("Label")] = PropertyList(label);
    job[QStringLiteral("Program")] = PropertyList(helper);
    job[QStringLiteral("WorkingDirectory")] = PropertyList(QFileInfo(helper).path());
    if (setup) {
        job[QStringLiteral("ProgramArguments")] =
            PropertyList(PropertyList::Array{PropertyList(QStringLiteral("CardsweepHelper")),
                                             PropertyList(QStringLiteral("-setup"))});
        job[QStringLiteral("RunAtLoad")] = PropertyList(true);
    } else {
        job[QStringLiteral("StartOnMount")] = PropertyList(true);
    }
    return PropertyList(job);
}

}  // namespace

void AppController::startHelperJob(const char* label, bool setup) {
    const auto job = helperJob(QString::fromLatin1(label), setup);
    if (!job) {
        QVLog::appendLog(
            u"Error - unable to determine application path. Please report this "
            u"error to Quorvant.");
        view_.showSheet({QStringLiteral("Error - unable to determine application path"),
                         QStringLiteral("OK"),
                         {},
                         {},
                         QStringLiteral("Please report this error to Quorvant.")});
        return;
    }
    launchd_.startLaunchAgent(QString::fromLatin1(label), *job, true);
}

void AppController::startListener() {
    startHelperJob(listenerLabel, false);
}

void AppController::stopListener() {
    launchd_.removeLaunchAgent(QString::fromLatin1(listenerLabel), true);
}

void AppController::startSetupJob() {
    startHelperJob(setupLabel, true);
}

void AppController::stopSetupJob() {
    launchd_.removeLaunchAgent(QString::fromLatin1(setupLabel), true);
}

void AppController::startUp(const QStringList& arguments) {
    Preferences(settings_).repairConcurrentThreads();
    ToolbarState disabled = transferItem(false);
    disabled.transferEnabled = false;
    view_.setToolbarState(disabled);
    services_.threads.start([this] { populateVolumes(); });

    // Destination drives that aren't there are named once, and kept.
    QStringList offline;
    for (const DestinationEntry& entry : destinationList()) {
        const QString drive = services_.paths.mediaDriveForPath(entry.path);
        if (drive.isEmpty() || fileLayer_.exists(PathText::bytes(drive)))
            continue;
        const QString name = QFileInfo(drive).fileName();
        if (!offline.contains(name))
            offline << name;
    }
    if (!offline.isEmpty()) {
        view_.showSheet({QStringLiteral("Destinations offline"),
                         QStringLiteral("OK"),
                         {},
                         {},
                         QStringLiteral("The following destination drives are offline:\n%1")
                             .arg(offline.join(u'\n'))});
    }
    refreshTotalRemainingSpace();

    if (!cardsweepEnabled())
        return;
    view_.setAutomaticModeSelected(true);
    const qsizetype flag = arguments.indexOf(QStringLiteral("-cardsweepVolume"));
    if (flag < 0 || flag + 1 >= arguments.size())
        return;
    for (const auto& volume : dataArray()) {
        if (volume->path() != arguments[flag + 1])
            continue;
        addVolumeToQueue(volume);
        return;
    }
}

void AppController::populateVolumes() {
    const std::lock_guard lock(populateMutex_);
    const std::vector<MountEntry> media = services_.mounts.removableVolumes();
    // A card already listed keeps its record (one mounted while the program starts may be
    // queued by now), and so does any volume being transferred: a new record in its place
    // would hide a transfer that goes on. Folders the user added are dropped.
    std::vector<std::shared_ptr<QVVolume>> before = dataArray();
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
    setDataArray({});
    onMainThread([this] { reloadVolumeList(); }, true);
    for (const MountEntry& entry : media) {
        if (const auto listed = take(entry.mountPoint))
            volumes_.add(listed);
        else
            addVolumeLocationToList(entry.mountPoint);
    }
    for (const auto& volume : before) {
        const VolumeStatus status = volume->status();
        if (status >= QVVolume::Copying && status != QVVolume::Done &&
            status != QVVolume::Cancelled)
            volumes_.add(volume);
    }
    onMainThread([this] { reloadVolumeList(); }, true);
}

bool AppController::isDestinationDrive(const QString& path) const {
    const QString drive = services_.paths.mediaDriveForPath(path);
    if (drive.isEmpty())
        return false;
    for (const DestinationEntry& entry : destinationList()) {
        if (services_.paths.mediaDriveForPath(entry.path) == drive)
            return true;
    }
    return false;
}

std::shared_ptr<QVVolume> AppController::addVolumeLocationToList(const QString& path,
                                                                 bool isFolder) {
    const QString name = QFileInfo(path).fileName();
    const int type = CardsweepVolumeChecker::verifyVolumeType(fileLayer_, path);
    const auto volume = QVVolume::volumeWithName(name, path, type, settings_, services_.clock);
    volume->setIsFolder(isFolder);
    recallCardMetadata(*volume);
    if (isFolder)
        volume->setStatus(QVVolume::Idle);
    const QStringList ignored = settings_.get(SettingsKey::ignoredVolumes);
    if (!isDestinationDrive(path) && !ignored.contains(name))
        volumes_.add(volume);
    onMainThread([this] { reloadVolumeList(); }, false);
    services_.threads.start([this, volume] { checkDoneFlagForVolume(volume); });
    return volume;
}

void AppController::volumeDidMount(const QString& path) {
    // A card pulled mid-transfer and put back is a new card: its old row goes.
    std::vector<std::shared_ptr<QVVolume>> removed;
    for (const auto& listed : dataArray()) {
        if (listed->isRemoved() && listed->path() == path)
            removed.push_back(listed);
    }
    volumes_.remove(removed);
    const auto volume = addVolumeLocationToList(path);
    if (volume->type() != -1 && volume->status() == QVVolume::Idle && cardsweepEnabled()) {
        // The list's last volume is queued, which is this one whenever it was listed.
        const auto volumes = dataArray();
        if (!volumes.empty())
            addVolumeToQueue(volumes.back());
    }
    QVLog::appendLog(u"Volume mounted: %@", path);
}

void AppController::volumeDidUnmount(const QString& path) {
    bool interrupted = false;
    const std::shared_ptr<QVVolume> gone = volumes_.takeAt(path, [&](QVVolume& volume) {
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
        updates_.changed(gone);
    onMainThread([this] { reloadVolumeList(); }, true);
    QVLog::appendLogAndPrint(u"Volume unmounted: %@", path);
    if (!interrupted)
        return;
    const QString name = gone->name();
    onMainThread(
        [this, name, path] {
            view_.showSheet({QStringLiteral("Transfer interrupted"),
                             QStringLiteral("OK"),
                             {},
                             {},
                             QStringLiteral("The source drive was unmounted mid-transfer.\n\n%1 "
                                            "(%2) was removed before its transfer ended.")
                                 .arg(name, path)});
        },
        false);
}

void AppController::startWatchingMounts() {
    watchingMounts_ = true;
    services_.mounts.startWatching([this](const MountEntry& entry, bool mounted) {
        if (!mounted)
            return volumeDidUnmount(entry.mountPoint);
        const auto volumes = dataArray();
        const bool listed = std::any_of(volumes.begin(), volumes.end(), [&](const auto& volume) {
            return volume->path() == entry.mountPoint && !volume->isRemoved();
        });
        if (!listed && services_.mounts.isRemovable(entry))
            volumeDidMount(entry.mountPoint);
    });
}

void AppController::transfer() {
    if (selectionIsBusy())
        return cancelSelectedTransfers();
    // Queued here rather than from a thread of its own, so the toolbar that follows already
    // sees each card running or waiting (a second Return cancels, it never starts it twice).
    for (const auto& volume : selectedVolumes()) {
        volume->setStatus(QVVolume::Idle);
        addVolumeToQueue(volume);
    }
    reloadVolumeList();
    updateToolbarForTableSelection();
}

void AppController::openVolumeFromArguments(const QStringList& arguments) {
    const qsizetype flag = arguments.indexOf(QStringLiteral("-cardsweepVolume"));
    if (!cardsweepEnabled() || flag < 0 || flag + 1 >= arguments.size())
        return;
    const QString path = arguments[flag + 1];
    const auto volumes = dataArray();
    const bool listed = std::any_of(volumes.begin(), volumes.end(),
                                    [&](const auto& volume) { return volume->path() == path; });
    // The mount watcher queues what it lists; queuing a listed card again would restart it.
    if (!listed && QFileInfo(path).isDir())
        volumeDidMount(path);
}

void AppController::toggleCardsweep() {
    if (cardsweepEnabled()) {
        view_.setAutomaticModeSelected(false);
        stopSetupJob();
        stopListener();
        return;
    }
    view_.setAutomaticModeSelected(true);
    startSetupJob();
    startListener();
    for (const auto& volume : dataArray()) {
        const VolumeStatus status = volume->status();
        if (volume->type() != -1 && (status == QVVolume::Idle || status == QVVolume::Cancelled))
            addVolumeToQueue(volume);
    }
}

void AppController::ignore() {
    const auto selected = selectedVolumes();
    if (selected.empty())
        return;
    const bool one = selected.size() == 1;
    const int answer = view_.showSheet(
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
    const QStringList added = Preferences(settings_).ignoreVolumeNames(names);
    std::vector<std::shared_ptr<QVVolume>> dropped;
    for (const auto& volume : selected) {
        if (added.contains(volume->name()) || volume->isRemoved())
            dropped.push_back(volume);
    }
    volumes_.remove(dropped);
    reloadVolumeList();
}

void AppController::resetIgnoredVolumes() {
    settings_.remove(SettingsKey::ignoredVolumes);
    settings_.synchronize();
    services_.threads.start([this] { populateVolumes(); });
    view_.showSheet({QStringLiteral("Ignored volumes successfully reset"),
                     QStringLiteral("OK"),
                     {},
                     {},
                     QStringLiteral("Previously-ignored volumes will now reappear in the "
                                    "volume list."),
                     SheetRequest::Icon::Information});
}

void AppController::showInfo() {
    const auto selected = selectedVolumes();
    if (selected.empty())
        return;
    const QVVolume& volume = *selected.front();
    const QString path = volume.path();
    FileLayer::Space space;
    const bool known = fileLayer_.freeSpace(PathText::bytes(path), &space) == 0;
    const double total = known ? double(space.total) : 0;
    const double free = known ? double(space.available) : 0;
    const auto info = services_.disks.forMountPoint(path);
    const QString diskUuid = info ? (*info)["DiskUUID"].toString() : QString();
    const QString volumeUuid = info ? (*info)["VolumeUUID"].toString() : QString();
    const QString key = diskUuid.isEmpty() ? volumeUuid : diskUuid;
    const auto counts = settings_.get(SettingsKey::failureCounts);
    const auto count = key.isEmpty() ? counts.end() : counts.find(key);
    view_.showInfo(volume.name(),
                   {{QStringLiteral("Mount Point"), path},
                    {QStringLiteral("Type"), volume.typeName()},
                    {QStringLiteral("Total Space"), QVFileManager::formatFileSize(total)},
                    {QStringLiteral("Free Space"), QVFileManager::formatFileSize(free)},
                    {QStringLiteral("Disk UUID"), diskUuid},
                    {QStringLiteral("Volume UUID"), volumeUuid},
                    {QStringLiteral("Number of Failures"),
                     QString::number(count == counts.end() ? 0 : count->second.toInteger())}});
}

void AppController::importFolders(const QStringList& folders) {
    for (const QString& folder : folders) {
        const auto volume = addVolumeLocationToList(folder, true);
        if (volume->status() == QVVolume::Idle && cardsweepEnabled())
            addVolumeToQueue(volume);
        QVLog::appendLog(u"Folder added: %@", folder);
    }
}

QString AppController::cardIdentity(const QVVolume& volume) const {
    if (volume.isFolder())
        return {};
    const std::optional<PropertyList> info = services_.disks.forMountPoint(volume.path());
    if (!info)
        return {};
    const QString filesystem = (*info)["VolumeUUID"].toString();
    return filesystem.isEmpty() ? (*info)["DiskUUID"].toString() : filesystem;
}

void AppController::recallCardMetadata(QVVolume& volume) {
    if (const auto values = MetadataNaming::recallCard(settings_, cardIdentity(volume)))
        volume.restoreMetadata(*values);
}

void AppController::claimCardMetadata(const std::shared_ptr<QVVolume>& volume) {
    // The day rule compares with the previous transfer's date: numbers first.
    const MetadataValues values = volume->claimMetadata(settings_);
    MetadataNaming::rememberCard(settings_, cardIdentity(*volume), values);
    settings_.set(SettingsKey::lastTransferDate, PropertyList(services_.clock->now()));
    for (const auto& listed : dataArray()) {
        if (listed != volume && listed->refreshListedMetadata(settings_))
            publish(listed);
    }
}
