// What the transfer shows: list reloads, the toolbar for the selection, the free space of the
// destination drives. Main thread only.

#include <QFile>
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

ToolbarState AppController::toolbarForSelection() const {
    const std::vector<std::shared_ptr<QVVolume>> selected = selectedVolumes();
    ToolbarState state = transferItem(false);
    state.transferEnabled = false;
    if (!selected.empty()) {
        const bool busy = std::any_of(selected.begin(), selected.end(), [](const auto& volume) {
            return volume->status() > QVVolume::Idle && volume->status() != QVVolume::Done;
        });
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

void AppController::refreshTotalRemainingSpace() {
    std::set<QString> drives;
    double total = 0;
    for (const DestinationEntry& entry : destinationList()) {
        if (!entry.isSelected())
            continue;
        QString drive = services_.paths.mediaDriveForPath(entry.path);
        if (drive.isEmpty())
            drive = QStringLiteral("/");
        if (!drives.insert(drive).second)
            continue;
        FileLayer::Space space;
        if (fileLayer_.freeSpace(PathText::bytes(drive), &space) != 0) {
            QVLog::appendLog(u"Error getting free space for drive %@: %@", drive,
                             QString::fromLocal8Bit(std::strerror(errno)));
            continue;
        }
        total += double(space.available);
    }
    view_.setRemainingSpaceText(QStringLiteral("Total Remaining Space on Media Drives: %1")
                                    .arg(QVFileManager::formatFileSize(total)));
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
            MetadataField::listFrom(settings_.object(SettingsKey::metadata));
        for (MetadataField& field : fields) {
            if (field.identifier() == column)
                field.defaultVal = value;
        }
        settings_.setObject(SettingsKey::metadata, MetadataField::toArray(fields));
    } else {
        return;
    }
    publish(volume);
}
