#include "VolumePresentation.h"

#include <sys/stat.h>

#include <QFile>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

#include "AppView.h"
#include "ControllerContext.h"
#include "ControllerFlow.h"
#include "DestinationReservation.h"
#include "DiskImages.h"
#include "FileLayer.h"
#include "LocalPaths.h"
#include "MetadataField.h"
#include "PathText.h"
#include "Preferences.h"
#include "QVFileManager.h"
#include "QVLog.h"
#include "QVVolume.h"
#include "Services.h"
#include "TransferOptions.h"
#include "TransferProgress.h"
#include "TransferQueue.h"
#include "TransferSettings.h"
#include "TransferStages.h"
#include "VolumeList.h"
#include "VolumeUpdates.h"
#include "VolumeVerification.h"

ToolbarState VolumePresentation::transferItem(bool asCancel) {
    ToolbarState state;
    state.transferCancels = asCancel;
    state.transferLabel = asCancel ? QStringLiteral(" Cancel ") : QStringLiteral("Transfer");
    state.transferImage =
        asCancel ? QStringLiteral("stop-progress") : QStringLiteral("Transfer.png");
    state.transferEnabled = true;
    return state;
}

void VolumePresentation::reloadVolumeList() {
    c_.view.reloadVolumeList();
}

void VolumePresentation::updateToolbarForTableSelection() {
    c_.view.setToolbarState(toolbarForSelection());
}

bool VolumePresentation::selectionIsBusy() const {
    const std::vector<std::shared_ptr<QVVolume>> selected = c_.selectedVolumes();
    const TransferQueue::Volumes waiting = c_.queue.waiting();
    // A cancelled or failed card is not busy: it can be started again.
    return std::any_of(selected.begin(), selected.end(), [&](const auto& volume) {
        const VolumeStatus status = volume->status();
        return (status >= QVVolume::Copying && status <= QVVolume::Unmounting) ||
               status == QVVolume::Finishing ||
               std::find(waiting.begin(), waiting.end(), volume) != waiting.end();
    });
}

ToolbarState VolumePresentation::toolbarForSelection() const {
    const std::vector<std::shared_ptr<QVVolume>> selected = c_.selectedVolumes();
    ToolbarState state = transferItem(false);
    state.transferEnabled = false;
    if (!selected.empty()) {
        const bool busy = selectionIsBusy();
        state = transferItem(busy);
        state.ejectEnabled = !busy;
        // Offered once a selected card has a verified copy; erase() names any that has none.
        state.eraseEnabled = std::any_of(selected.begin(), selected.end(), [this](const auto& v) {
            return !c_.flow.eraseRefusal(*v);
        });
        state.transferEnabled = state.infoEnabled = state.ignoreEnabled = true;
        state.revealTransferredEnabled = true;
    }
    return state;
}

namespace {

// The nearest folder at or above path that exists (a destination may not be made yet).
QByteArray nearestExisting(FileLayer& files, QByteArray path, struct stat* status) {
    while (files.status(path, status) != 0 && path.size() > 1) {
        const qsizetype slash = path.lastIndexOf('/');
        path.truncate(std::max<qsizetype>(slash, 1));
    }
    return path;
}

}  // namespace

void VolumePresentation::refreshTotalRemainingSpace() {
    // Each file system once, known by its device: two folders on one disk share its room.
    std::set<dev_t> systems;
    double total = 0;
    for (const DestinationEntry& entry : c_.volumes.destinations()) {
        if (!entry.isSelected() || entry.path.isEmpty())
            continue;
        struct stat status {};
        const QByteArray drive = nearestExisting(c_.files, PathText::bytes(entry.path), &status);
        FileLayer::Space space;
        if (c_.files.status(drive, &status) != 0 || c_.files.freeSpace(drive, &space) != 0) {
            QVLog::appendLog(u"Error getting free space for drive %@: %@", PathText::display(drive),
                             QString::fromLocal8Bit(std::strerror(errno)));
            continue;
        }
        if (systems.insert(status.st_dev).second)
            total += double(space.available);
    }
    c_.view.setRemainingSpaceText(QStringLiteral("Total Remaining Space on Media Drives: %1")
                                      .arg(QVFileManager::formatFileSize(total)));
    showDestinationSummary();
}

void VolumePresentation::showDestinationSummary() {
    struct stat root {};
    const bool rootKnown = c_.files.status("/", &root) == 0;
    QStringList ticked;
    QStringList onSystemDisk;
    for (const DestinationEntry& entry : c_.volumes.destinations()) {
        if (!entry.isSelected() || entry.path.isEmpty())
            continue;
        ticked << entry.path;
        struct stat status {};
        nearestExisting(c_.files, PathText::bytes(entry.path), &status);
        if (rootKnown && status.st_dev == root.st_dev)
            onSystemDisk << entry.path;
    }
    if (ticked.isEmpty()) {
        c_.view.setDestinationSummary(
            QStringLiteral("No destination is ticked: cards can't be transferred until one is."),
            true);
        return;
    }
    QString text = QStringLiteral("Copies will go to %1.").arg(ticked.join(QStringLiteral(", ")));
    if (!onSystemDisk.isEmpty()) {
        const QString which =
            onSystemDisk.size() == ticked.size()
                ? (ticked.size() == 1 ? QStringLiteral("It is") : QStringLiteral("They are"))
                : onSystemDisk.join(QStringLiteral(", ")) +
                      (onSystemDisk.size() == 1 ? QStringLiteral(" is") : QStringLiteral(" are"));
        text += QStringLiteral(
                    " %1 on the system disk: a large card can fill it, and a copy "
                    "there is lost with the computer.")
                    .arg(which);
    }
    c_.view.setDestinationSummary(text, !onSystemDisk.isEmpty());
}

namespace {

const QString kMetaPrefix = QStringLiteral("QVMeta");

}  // namespace

void VolumePresentation::changeDestinationList(const std::vector<DestinationEntry>& list) {
    c_.volumes.setDestinations(list);
    Preferences(c_.settings).setDestinationList(list);
    refreshTotalRemainingSpace();
}

void VolumePresentation::addDestinations(const QStringList& folders) {
    std::vector<DestinationEntry> list = c_.volumes.destinations();
    for (const QString& folder : folders) {
        const bool listed =
            std::any_of(list.begin(), list.end(),
                        [&](const DestinationEntry& entry) { return entry.path == folder; });
        if (!listed)
            list.push_back({1, folder});
    }
    changeDestinationList(list);
}

void VolumePresentation::setVolumeListValue(int row, const QString& column, const QString& value) {
    const auto volumes = c_.volumes.atRows({row});
    if (volumes.empty())
        return;
    const std::shared_ptr<QVVolume>& volume = volumes.front();
    if (column == QStringLiteral("colDestination")) {
        volume->setOutputs(value.isEmpty() ? std::nullopt
                                           : std::optional<QStringList>(QStringList{value}));
    } else if (column.startsWith(kMetaPrefix)) {
        MetadataValues values = volume->metadata();
        values[column] = value;
        volume->setMetadata(values);
        std::vector<MetadataField> fields =
            MetadataField::listFrom(c_.settings.get(SettingsKey::metadata));
        for (MetadataField& field : fields) {
            if (field.identifier() == column)
                field.defaultVal = value;
        }
        c_.settings.set(SettingsKey::metadata, MetadataField::toArray(fields));
    } else {
        return;
    }
    c_.publish(volume);
}
