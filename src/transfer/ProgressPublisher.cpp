// Progress of the transfers: the copy engine's per-volume delegate, the volume's bar, the
// window's badge and title, and what a damaged copy sets off.
#include "ProgressPublisher.h"

#include <algorithm>
#include <limits>

#include "AppView.h"
#include "ControllerContext.h"
#include "ControllerFlow.h"
#include "DestinationReservation.h"
#include "DiskImages.h"
#include "MainThread.h"
#include "Notifier.h"
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
#include "VolumeCopier.h"
#include "VolumeList.h"
#include "VolumeUpdates.h"
#include "VolumeVerification.h"

std::shared_ptr<CopyDelegate> ProgressPublisher::copierFor(
    const std::shared_ptr<QVVolume>& volume) {
    VolumeCopier::Hooks hooks;
    hooks.progress = [this, weak = std::weak_ptr<QVVolume>(volume)](QVVolume&, double bytes) {
        if (const auto v = weak.lock())
            advanceProgress(v, bytes);
    };
    hooks.damagedCopy = [this](const std::shared_ptr<QVVolume>& v) { damagedCopy(v); };
    return std::make_shared<VolumeCopier>(volume, std::move(hooks));
}

void ProgressPublisher::advanceProgress(const std::shared_ptr<QVVolume>& volume, double bytes) {
    if (c_.progress.advance(*volume, bytes))
        c_.publish(volume);
    else
        c_.updates.changed(volume);

    showOverallProgress();
}

void ProgressPublisher::showOverallProgress() {
    const std::vector<std::shared_ptr<QVVolume>> volumes = c_.volumes.volumes();
    const bool running = std::any_of(volumes.begin(), volumes.end(), [](const auto& volume) {
        const VolumeStatus status = volume->status();
        return status >= QVVolume::Copying && status <= QVVolume::Unmounting;
    });
    // Nothing running shows no percentage, whatever share of the list is done.
    const float overall = running ? totalProgressForAllVolumes() : 1.0f;
    // The window hears of a change of a whole percent, not of every file.
    const auto percent = c_.progress.percentChange(overall);
    if (!percent)
        return;
    const bool shown = *percent >= 0;
    const QString text = QString::number(*percent);
    c_.onMainThread(
        [this, shown, text] {
            c_.view.setBadge(shown ? text + u'%' : QString());
            c_.view.setWindowTitle(shown ? QStringLiteral("Cardsweep (%1%)").arg(text)
                                         : QStringLiteral("Cardsweep"));
        },
        false);
}

void ProgressPublisher::damagedCopy(const std::shared_ptr<QVVolume>& volume) {
    c_.flow.incrementFailureCountForVolume(*volume);
    c_.onMainThread([this, volume] { c_.view.showVerificationFailureForVolume(volume); }, true);
    if (c_.optionsOf(*volume)->notify) {
        QVLog::appendLog(u"Showing Growl failure alert...");
        c_.services.notifier.postGrowlNotification(QStringLiteral("Verification Failed"),
                                                   volume->name(), QString(),
                                                   QStringLiteral("Transfer Failed"));
    }
}

float ProgressPublisher::totalProgressForAllVolumes() const {
    const std::vector<std::shared_ptr<QVVolume>> volumes = c_.volumes.volumes();
    float count = 0;
    float done = 0;
    for (const auto& volume : volumes) {
        const VolumeStatus status = volume->status();
        if (status >= QVVolume::Failed)
            ++count;
        if (status == QVVolume::Copying) {
            const auto bar = volume->progressBar();
            if (bar.maxValue > 0)
                done += float(bar.doubleValue / bar.maxValue);
        } else if (status == QVVolume::Done || status == QVVolume::Finishing) {
            done += 1.0f;
        }
    }
    if (count == 0)
        return std::numeric_limits<float>::quiet_NaN();
    return done / count;
}
