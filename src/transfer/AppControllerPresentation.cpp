// What the transfer shows: list reloads, the toolbar for the selection, the free space of the
// destination drives. Main thread only.
#include <sys/statvfs.h>

#include <QFile>
#include <cerrno>
#include <cstring>
#include <set>

#include "AppController.h"
#include "QVFileManager.h"
#include "QVLocalPaths.h"
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
        state.eraseEnabled = state.ejectEnabled = !busy;
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
        QString drive = QVLocalPaths::mediaDriveForPath(entry.path);
        if (drive.isEmpty())
            drive = QStringLiteral("/");
        if (!drives.insert(drive).second)
            continue;
        struct statvfs figures {};
        if (::statvfs(QFile::encodeName(drive).constData(), &figures) != 0) {
            QVLog::appendLog(u"Error getting free space for drive %@: %@", drive,
                             QString::fromLocal8Bit(std::strerror(errno)));
            continue;
        }
        total += double(figures.f_bavail) * double(figures.f_frsize);
    }
    view_.setRemainingSpaceText(QStringLiteral("Total Remaining Space on Media Drives: %1")
                                    .arg(QVFileManager::formatFileSize(total)));
}
