// The copy engine's delegate: progress into the volume's bar and the window, cancellation,
// failed files and the inline digests.
#include <QFileInfo>
#include <cmath>
#include <limits>

#include "AppController.h"
#include "MainThread.h"
#include "Notifier.h"
#include "Preferences.h"
#include "QVFileManager.h"
#include "QVLog.h"
#include "SettingsStore.h"

namespace {

constexpr double kRefreshStep = 4194304.0;  // 4 MiB

QString describe(const CopyInfo& info) {
    QString text = QStringLiteral("{ operationtype = %1; source = \"%2\"; destinations = (%3)")
                       .arg(info.operationtype, info.source, info.destinations.join(u", "));
    if (info.sourceChecksum)
        text += QStringLiteral("; sourceChecksum = ") + *info.sourceChecksum;
    if (info.destChecksums)
        text += QStringLiteral("; destChecksums = (%1)").arg(info.destChecksums->join(u", "));
    return text + QStringLiteral(" }");
}

}  // namespace

// The record names its volume weakly: the volume keeps failed records, and a strong link back
// would keep both alive for ever.
std::shared_ptr<QVVolume> AppController::volumeOf(const CopyInfo& info) const {
    if (const auto* weak = std::any_cast<std::weak_ptr<QVVolume>>(&info.object))
        return weak->lock();
    const auto* strong = std::any_cast<std::shared_ptr<QVVolume>>(&info.object);
    return strong ? *strong : nullptr;
}

void AppController::fileCopyBytesWritten(std::uint64_t bytes,
                                         const std::shared_ptr<CopyInfo>& info) {
    const std::shared_ptr<QVVolume> volume = volumeOf(*info);
    if (!volume || info->source.isEmpty())
        return;
    bool refresh = false;
    {
        const std::lock_guard lock(lock_);
        auto progress = volume->progressDict().value_or(std::map<QString, std::uint64_t>());
        progress[info->source] = bytes;
        volume->setProgressDict(progress);
        double total = 0;
        for (const auto& [source, count] : progress)
            total += double(count);
        const double shown = volume->progressBar().doubleValue;
        if (total > shown) {
            volume->setProgressValue(total);
            refresh = total - shown > kRefreshStep;
        }
        volume->timeEstimate().setCurrentValue(total);
    }
    if (refresh)
        onMainThread([this] { reloadVolumeList(); }, false);

    const float overall = totalProgressForAllVolumes();
    const bool running = overall < 1.0f;
    const QString percent = QString::asprintf("%0.0f", double(overall) * 100.0);
    onMainThread(
        [this, running, percent] {
            view_.setBadge(running ? percent + u'%' : QString());
            view_.setWindowTitle(running ? QStringLiteral("Cardsweep (%1%)").arg(percent)
                                         : QStringLiteral("Cardsweep"));
        },
        false);
}

bool AppController::fileCopyShouldContinue(const std::shared_ptr<CopyInfo>& info) {
    const std::shared_ptr<QVVolume> volume = volumeOf(*info);
    return !volume || volume->status() != QVVolume::Cancelled;
}

void AppController::fileCopyVerificationFailed(const std::shared_ptr<CopyInfo>& info,
                                               const QString& file) {
    const std::shared_ptr<QVVolume> volume = volumeOf(*info);
    if (!volume)
        return;
    // The same record goes in once per failing destination, showing the last one.
    info->failedFile = file;
    volume->addFailedFile(info);
    incrementFailureCountForVolume(*volume);
    onMainThread([this, volume] { view_.showVerificationFailureForVolume(volume); }, true);
    if (settings_.isOn(SettingsKey::actionGrowl)) {
        QVLog::appendLog(u"Showing Growl failure alert...");
        notifier_.postGrowlNotification(QStringLiteral("Verification Failed"), volume->name(),
                                        QString(), QStringLiteral("Transfer Failed"));
    }
}

void AppController::fileCopyFinished(const std::shared_ptr<CopyInfo>& info) {
    QVLog::appendLog(u"File copy finished: %@", describe(*info));
    const std::shared_ptr<QVVolume> volume = volumeOf(*info);
    if (!volume)
        return;
    const QString name = QFileInfo(info->source).fileName();
    const std::lock_guard lock(lock_);
    if (info->sourceChecksum) {
        auto sources = volume->sourceChecksumDict();
        sources[name] = *info->sourceChecksum;
        volume->setSourceChecksumDict(sources);
    }
    const QStringList digests = info->destChecksums.value_or(QStringList());
    const std::size_t count =
        std::min(std::size_t(volume->destinations().size()), std::size_t(digests.size()));
    auto perDestination = volume->destChecksums();
    for (std::size_t i = 0; i < count; ++i) {
        if (perDestination.size() <= i)
            perDestination.resize(i + 1);
        perDestination[i][name] = digests[qsizetype(i)];
    }
    volume->setDestChecksums(perDestination);
}

float AppController::totalProgressForAllVolumes() const {
    const std::vector<std::shared_ptr<QVVolume>> volumes = dataArray();
    float count = 0;
    float done = 0;
    for (const auto& volume : volumes) {
        const qint64 status = volume->status();
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
