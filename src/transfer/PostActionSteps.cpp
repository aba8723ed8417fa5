// What runs after a verified transfer, step by step and in this order: marker, manifest,
// spreadsheet, then on the copy (movie metadata, refresh, reveal, player, editing application,
// archive), then eject, sound, notification, "Done" and the attention request.
#include "PostActionSteps.h"

#include "AppView.h"
#include "ArchiveAction.h"
#include "CardFiles.h"
#include "ControllerContext.h"
#include "ControllerFlow.h"
#include "Desktop.h"
#include "DestinationReservation.h"
#include "DiskImages.h"
#include "EditingHandOffAction.h"
#include "EmbedMetadataAction.h"
#include "LocalPaths.h"
#include "Notifier.h"
#include "PostActionRun.h"
#include "Preferences.h"
#include "QVException.h"
#include "QVFileManager.h"
#include "QVLog.h"
#include "QVVolume.h"
#include "Services.h"
#include "SettingsStore.h"
#include "SpreadsheetAction.h"
#include "SwitchedAction.h"
#include "TransferOptions.h"
#include "TransferProgress.h"
#include "TransferQueue.h"
#include "TransferSettings.h"
#include "TransferStages.h"
#include "VolumeList.h"
#include "VolumeUpdates.h"
#include "VolumeVerification.h"

namespace {

QString plural(qsizetype count, const QString& noun) {
    return QStringLiteral("%1 %2%3").arg(count).arg(noun, count == 1 ? QString() : u"s"_qs);
}

}  // namespace

PostActionSteps::PostActionSteps(ControllerContext& context) : c_(context) {
    const auto step = [this](SwitchedAction::Step s) {
        steps_.append(std::make_unique<SwitchedAction>(std::move(s)));
    };
    step({u"writeDoneFlag"_qs, SettingsKey::writeDoneFlag, {}, false, [this](PostActionRun& run) {
              // A folder the user added is not a card: it never carries the marker.
              if (run.volume().isFolder())
                  return;
              const QString marker =
                  run.volume().path() + u'/' + QString::fromLatin1(CardFiles::kMarker);
              if (c_.fileManager.createEmptyFile(marker))
                  run.report(u"Done marker: "_qs + marker);
          }});
    step({u"writeChecksumFileForVolume:"_qs,
          {},
          u"Writing checksum file..."_qs,
          false,
          [this](PostActionRun& run) {
              c_.flow.writeChecksumFileForVolume(run.volume());
              run.report(u"Checksum manifest written to "_qs +
                         plural(run.volume().destinations().size(), u"destination"_qs));
          }});
    steps_.append(std::make_unique<SpreadsheetAction>(c_.services.disks));
    steps_.append(std::make_unique<EmbedMetadataAction>(
        c_.services.processes, LocalPaths::helperProgram(u"QTMetaTool"_qs)));
    step({u"noteFileSystemChanged:"_qs, {}, {}, true, [this](PostActionRun& run) {
              for (const QString& destination : run.volume().destinations())
                  c_.services.desktop.noteFileSystemChanged(destination);
          }});
    step({u"showFinder"_qs, SettingsKey::actionShowFinder, u"Showing folder in Finder..."_qs, true,
          [this](PostActionRun& run) {
              if (c_.services.desktop.revealFolder(run.firstDestination()))
                  run.report(u"Shown in the file manager: "_qs + run.firstDestination());
          }});
    step({u"openQTPlayer"_qs, SettingsKey::actionOpenQTPlayer,
          u"Opening files in QuickTime Player..."_qs, true, [this](PostActionRun& run) {
              const QStringList& movies = run.movies();
              if (!movies.isEmpty() && c_.services.desktop.openFiles(movies))
                  run.report(u"Opened "_qs + plural(movies.size(), u"movie"_qs));
          }});
    steps_.append(std::make_unique<EditingHandOffAction>(
        c_.settings, c_.services.processes, LocalPaths::helperProgram(u"QTTimecodeTool"_qs)));
    steps_.append(
        std::make_unique<ArchiveAction>(c_.settings, c_.fileManager, c_.services.processes));
    step({u"ejectVolume:"_qs, SettingsKey::actionEject, {}, false, [this](PostActionRun& run) {
              QVLog::appendLog(u"Ejecting volume %@", run.volume().name());
              if (ejectAfterTransfer(run.volume()))
                  run.report(u"Ejected "_qs + run.volume().name());
          }});
    step({u"playSound"_qs, SettingsKey::actionSound, u"Playing sound..."_qs, false,
          [this](PostActionRun& run) {
              if (c_.services.desktop.playSound(u"complete"_qs))
                  run.report(u"Played the completion sound"_qs);
          }});
    step({u"postGrowlNotification"_qs, SettingsKey::actionGrowl, u"Showing Growl alert..."_qs,
          false, [this](PostActionRun& run) {
              c_.services.notifier.postGrowlNotification(
                  u"Transfer Complete"_qs, run.volume().name(), QString(), u"Transfer Complete"_qs);
          }});
    step({u"finish"_qs, {}, u"Finishing..."_qs, false, [this](PostActionRun& run) {
              run.volume().setStatus(QVVolume::Done);
              c_.updates.changed(run.volumePointer());
              c_.onMainThread([this] { c_.flow.reloadVolumeList(); }, true);
              c_.onMainThread([this] { c_.flow.updateToolbarForTableSelection(); }, true);
              c_.onMainThread([this] { c_.flow.refreshTotalRemainingSpace(); }, true);
          }});
    step({u"bounceDock"_qs, SettingsKey::actionBounceDock, {}, false, [this](PostActionRun&) {
              c_.services.desktop.requestAttention();
          }});
}

void PostActionSteps::performPostActions(const std::shared_ptr<QVVolume>& volume) {
    try {
        QVLog::appendLog(u"Performing post actions on volume %@", volume->path());
        volume->setStatus(QVVolume::Finishing);
        c_.publish(volume, true);
        PostActionRun run(volume, c_.optionsOf(*volume), [this, volume](const QString& line) {
            c_.onMainThread(
                [this, shot = volume->snapshot(), line] { c_.view.postActionDone(*shot, line); },
                true);
        });
        steps_.perform(run);
    } catch (const std::exception& exception) {
        QVException::logException(exception, "performPostActions:");
    }
    c_.flow.endTransfer(volume);
}

// A folder the user added lives on a drive that holds other things, maybe the system's own:
// only a card is unmounted and powered off.
bool PostActionSteps::ejectAfterTransfer(QVVolume& volume) {
    if (volume.isFolder()) {
        QVLog::appendLog(u"%@ is a folder, not a card: it is not ejected", volume.path());
        return false;
    }
    return c_.flow.ejectVolume(volume);
}
