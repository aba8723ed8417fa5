// Progress of the transfers: the copy engine's per-volume delegate, the volume's bar, the
// window's badge and title, and what a damaged copy sets off.
#include <algorithm>
#include <limits>

#include "AppController.h"
#include "MainThread.h"
#include "Notifier.h"
#include "Preferences.h"
#include "QVLog.h"
#include "SettingsStore.h"
#include "VolumeCopier.h"

std::shared_ptr<CopyDelegate> AppController::copierFor(const std::shared_ptr<QVVolume>& volume) {
    VolumeCopier::Hooks hooks;
    hooks.progress = [this, weak = std::weak_ptr<QVVolume>(volume)](QVVolume&, double bytes) {
        if (const auto v = weak.lock())
            advanceProgress(v, bytes);
    };
    hooks.damagedCopy = [this](const std::shared_ptr<QVVolume>& v) { damagedCopy(v); };
    return std::make_shared<VolumeCopier>(volume, std::move(hooks));
}

void AppController::advanceProgress(const std::shared_ptr<QVVolume>& volume, double bytes) {
    if (progress_.advance(*volume, bytes))
        publish(volume);
    else
        updates_.changed(volume);

    showOverallProgress();
}

void AppController::showOverallProgress() {
    const std::vector<std::shared_ptr<QVVolume>> volumes = dataArray();
    const bool running = std::any_of(volumes.begin(), volumes.end(), [](const auto& volume) {
        const VolumeStatus status = volume->status();
        return status >= QVVolume::Copying && status <= QVVolume::Unmounting;
    });
    // Nothing running shows no percentage, whatever share of the list is done.
    const float overall = running ? totalProgressForAllVolumes() : 1.0f;
    // The window hears of a change of a whole percent, not of every file.
    const auto percent = progress_.percentChange(overall);
    if (!percent)
        return;
    const bool shown = *percent >= 0;
    const QString text = QString::number(*percent);
    onMainThread(
        [this, shown, text] {
            view_.setBadge(shown ? text + u'%' : QString());
            view_.setWindowTitle(shown ? QStringLiteral("Cardsweep (%1%)").arg(text)
                                       : QStringLiteral("Cardsweep"));
        },
        false);
}

void AppController::damagedCopy(const std::shared_ptr<QVVolume>& volume) {
    incrementFailureCountForVolume(*volume);
    onMainThread([this, volume] { view_.showVerificationFailureForVolume(volume); }, true);
    if (optionsOf(*volume)->notify) {
        QVLog::appendLog(u"Showing Growl failure alert...");
        services_.notifier.postGrowlNotification(QStringLiteral("Verification Failed"),
                                                 volume->name(), QString(),
                                                 QStringLiteral("Transfer Failed"));
    }
}

float AppController::totalProgressForAllVolumes() const {
    const std::vector<std::shared_ptr<QVVolume>> volumes = dataArray();
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
