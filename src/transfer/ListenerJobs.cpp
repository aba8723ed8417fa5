#include "ListenerJobs.h"

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

ListenerJobs::ListenerJobs(ControllerContext& context)
    : c_(context),
      launchd_(context.services.processes, context.services.paths, context.services.authorization,
               [this](const QString& title, const QString& text) {
                   c_.onMainThread(
                       [this, title, text] {
                           c_.view.showSheet({title, QStringLiteral("OK"), {}, {}, text});
                       },
                       true);
               }) {}

bool ListenerJobs::cardsweepEnabled() const {
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

void ListenerJobs::startHelperJob(const char* label, bool setup) {
    const auto job = helperJob(QString::fromLatin1(label), setup);
    if (!job) {
        QVLog::appendLog(
            u"Error - unable to determine application path. Please report this "
            u"error to Quorvant.");
        c_.view.showSheet({QStringLiteral("Error - unable to determine application path"),
                           QStringLiteral("OK"),
                           {},
                           {},
                           QStringLiteral("Please report this error to Quorvant.")});
        return;
    }
    launchd_.startLaunchAgent(QString::fromLatin1(label), *job, true);
}

void ListenerJobs::startListener() {
    startHelperJob(listenerLabel, false);
}

void ListenerJobs::stopListener() {
    launchd_.removeLaunchAgent(QString::fromLatin1(listenerLabel), true);
}

void ListenerJobs::startSetupJob() {
    startHelperJob(setupLabel, true);
}

void ListenerJobs::stopSetupJob() {
    launchd_.removeLaunchAgent(QString::fromLatin1(setupLabel), true);
}
