// What the transfer shows: list reloads, the toolbar for the selection, the free space of the
// destination drives. Main thread only.

#include <sys/stat.h>

#include <QFile>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

#include "AppController.h"
#include "FileLayer.h"
#include "LocalPaths.h"
#include "MetadataField.h"
#include "PathText.h"
#include "Preferences.h"
#include "QVFileManager.h"
#include "QVLog.h"
#include "QVVolume.h"

void AppController::reloadVolumeList() {
    view_.reloadVolumeList();
}

void AppController::updateToolbarForTableSelection() {
    view_.setToolbarState(toolbarForSelection());
}

bool AppController::selectionIsBusy() const {
    const std::vector<std::shared_ptr<QVVolume>> selected = selectedVolumes();
    const TransferQueue::Volumes waiting = queue_.waiting();
    // A cancelled or failed card is not busy: it can be started again.
    return std::any_of(selected.begin(), selected.end(), [&](const auto& volume) {
        const VolumeStatus status = volume->status();
        return (status >= QVVolume::Copying && status <= QVVolume::Unmounting) ||
               status == QVVolume::Finishing ||
               std::find(waiting.begin(), waiting.end(), volume) != waiting.end();
    });
}

ToolbarState AppController::toolbarForSelection() const {
    const std::vector<std::shared_ptr<QVVolume>> selected = selectedVolumes();
    ToolbarState state = transferItem(false);
    state.transferEnabled = false;
    if (!selected.empty()) {
        const bool busy = selectionIsBusy();
        state = transferItem(busy);
        state.ejectEnabled = !busy;
        // Offered once a selected card has a verified copy; erase() names any that has none.
        state.eraseEnabled = std::any_of(selected.begin(), selected.end(),
                                         [this](const auto& v) { return !eraseRefusal(*v); });
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

void AppController::refreshTotalRemainingSpace() {
    // Each file system once, known by its device: two folders on one disk share its room.
    std::set<dev_t> systems;
    double total = 0;
    for (const DestinationEntry& entry : destinationList()) {
        if (!entry.isSelected() || entry.path.isEmpty())
            continue;
        struct stat status {};
        const QByteArray drive = nearestExisting(fileLayer_, PathText::bytes(entry.path), &status);
        FileLayer::Space space;
        if (fileLayer_.status(drive, &status) != 0 || fileLayer_.freeSpace(drive, &space) != 0) {
            QVLog::appendLog(u"Error getting free space for drive %@: %@", PathText::display(drive),
                             QString::fromLocal8Bit(std::strerror(errno)));
            continue;
        }
        if (systems.insert(status.st_dev).second)
            total += double(space.available);
    }
    view_.setRemainingSpaceText(QStringLiteral("Total Remaining Space on Media Drives: %1")
                                    .arg(QVFileManager::formatFileSize(total)));
    showDestinationSummary();
}

void AppController::showDestinationSummary() {
    struct stat root {};
    const bool rootKnown = fileLayer_.status("/", &root) == 0;
    QStringList ticked;
    QStringList onSystemDisk;
    for (const DestinationEntry& entry : destinationList()) {
        if (!entry.isSelected() || entry.path.isEmpty())
            continue;
        ticked << entry.path;
        struct stat status {};
        nearestExisting(fileLayer_, PathText::bytes(entry.path), &status);
        if (rootKnown && status.st_dev == root.st_dev)
            onSystemDisk << entry.path;
    }
    if (ticked.isEmpty()) {
        view_.setDestinationSummary(
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
    view_.setDestinationSummary(text, !onSystemDisk.isEmpty());
}

namespace {

const QString kMetaPrefix = QStringLiteral("QVMeta");

}  // namespace

void AppController::changeDestinationList(const std::vector<DestinationEntry>& list) {
    setDestinationList(list);
    Preferences(settings_).setDestinationList(list);
    refreshTotalRemainingSpace();
}

void AppController::addDestinations(const QStringList& folders) {
    std::vector<DestinationEntry> list = destinationList();
    for (const QString& folder : folders) {
        const bool listed =
            std::any_of(list.begin(), list.end(),
                        [&](const DestinationEntry& entry) { return entry.path == folder; });
        if (!listed)
            list.push_back({1, folder});
    }
    changeDestinationList(list);
}

void AppController::setVolumeListValue(int row, const QString& column, const QString& value) {
    const auto volumes = volumes_.atRows({row});
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
            MetadataField::listFrom(settings_.get(SettingsKey::metadata));
        for (MetadataField& field : fields) {
            if (field.identifier() == column)
                field.defaultVal = value;
        }
        settings_.set(SettingsKey::metadata, MetadataField::toArray(fields));
    } else {
        return;
    }
    publish(volume);
}
