#include "CardCommands.h"

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

void CardCommands::eject() {
    std::vector<std::shared_ptr<QVVolume>> folders;
    for (const auto& volume : c_.selectedVolumes()) {
        if (volume->isFolder() || volume->isRemoved())
            folders.push_back(volume);
        else
            ejectVolume(*volume);
    }
    // A folder (or a card already pulled) is ejected by dropping it from the list; cards leave
    // through their unmount.
    c_.volumes.remove(folders);
    c_.flow.reloadVolumeList();
}

bool CardCommands::ejectVolume(QVVolume& volume) {
    QString error;
    if (c_.services.volumes.unmountAndEject(volume.path(), &error))
        return true;
    QVLog::appendLog(u"Unable to eject %@: %@", volume.path(), error);
    return false;
}

std::optional<QString> CardCommands::eraseRefusal(const QVVolume& volume) const {
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
QString CardCommands::eraseDetails(const QVVolume& volume) const {
    const auto info = c_.services.disks.forMountPoint(volume.path());
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

void CardCommands::erase() {
    const auto selected = c_.selectedVolumes();
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
        c_.view.showSheet(
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
        c_.view.showSheet({QStringLiteral("Are you sure you wish to erase %1 volume%2?")
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

void CardCommands::eraseVolume(const std::shared_ptr<QVVolume>& volume) {
    ToolbarState state = c_.flow.toolbarForSelection();
    state.eraseEnabled = false;  // until the erase ends
    c_.view.setToolbarState(state);
    c_.services.threads.start([this, volume] { eraseVolumeOnThread(volume); });
}

void CardCommands::eraseVolumeOnThread(const std::shared_ptr<QVVolume>& volume) {
    // Never the disk of a destination: those devices are protected.
    QStringList destinations;
    for (const DestinationEntry& entry : c_.volumes.destinations())
        destinations << entry.path;
    QString error;
    const bool erased =
        !volume->isFolder() &&
        c_.services.volumes.erase(volume->path(), volume->name(), destinations, &error);
    if (!error.isEmpty())
        QVLog::appendLog(u"Erase of %@: %@", volume->path(), error);
    const QString name = volume->name();
    c_.onMainThread(
        [this, erased, name] {
            if (erased) {
                c_.view.showSheet({QStringLiteral("'%1' erased successfully").arg(name),
                                   QStringLiteral("OK"),
                                   {},
                                   {},
                                   QStringLiteral("The volume is now ready for use."),
                                   SheetRequest::Icon::Information});
            } else {
                c_.view.showSheet(
                    {QStringLiteral("Unable to erase volume '%1'").arg(name),
                     QStringLiteral("OK"),
                     {},
                     {},
                     QStringLiteral("The volume may not exist or may be read-only.")});
            }
            c_.flow.updateToolbarForTableSelection();
        },
        true);
}
