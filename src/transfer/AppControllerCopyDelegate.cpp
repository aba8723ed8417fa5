// The copy engine's delegate: progress into the volume's bar and the window, cancellation,
// failed files and the inline digests.
#include <QFileInfo>
#include <cmath>
#include <limits>
#include <utility>

#include "AppController.h"
#include "MainThread.h"
#include "Notifier.h"
#include "PathText.h"
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

// Each file adds what it copied since its last report, so the total costs the same whatever the
// number of files (rather than a sum over every file copied so far).
void AppController::fileCopyBytesWritten(std::uint64_t bytes,
                                         const std::shared_ptr<CopyInfo>& info) {
    const std::shared_ptr<QVVolume> volume = volumeOf(*info);
    if (!volume || info->source.isEmpty())
        return;
    const std::uint64_t counted = std::exchange(info->progressCounted, bytes);
    advanceProgress(*volume, double(bytes) - double(counted));
}

void AppController::advanceProgress(QVVolume& volume, double bytes) {
    bool refresh = false;
    {
        const std::lock_guard lock(lock_);
        const double shown = volume.progressBar().doubleValue;
        volume.incrementProgress(bytes);
        const double total = volume.progressBar().doubleValue;
        progressSinceRefresh_[&volume] += total - shown;
        if (progressSinceRefresh_[&volume] > kRefreshStep) {
            progressSinceRefresh_[&volume] = 0;
            refresh = true;
        }
    }
    if (refresh)
        onMainThread([this] { reloadVolumeList(); }, false);

    const float overall = totalProgressForAllVolumes();
    const bool running = overall < 1.0f;
    const int percent = running ? int(std::lround(double(overall) * 100.0)) : -1;
    // The window hears of a change of a whole percent, not of every file.
    if (shownPercent_.exchange(percent) == percent)
        return;
    const QString text = QString::number(percent);
    onMainThread(
        [this, running, text] {
            view_.setBadge(running ? text + u'%' : QString());
            view_.setWindowTitle(running ? QStringLiteral("Cardsweep (%1%)").arg(text)
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

QByteArray AppController::relativePathOf(const CopyInfo& info, const QVVolume& volume) const {
    const QByteArray root = PathText::bytes(volume.path());
    return info.sourcePath.startsWith(root) ? info.sourcePath.mid(root.size()) : info.sourcePath;
}

void AppController::fileCopyFinished(const std::shared_ptr<CopyInfo>& info) {
    QVLog::appendLog(u"File copy finished: %@", describe(*info));
    const std::shared_ptr<QVVolume> volume = volumeOf(*info);
    if (!volume)
        return;
    if (const std::shared_ptr<TransferLedger> ledger = volume->ledger()) {
        ledger->recordFile(relativePathOf(*info, *volume), info->size,
                           info->sourceChecksum.value_or(QString()),
                           info->destChecksums.value_or(QStringList()), info->alsoChecksums);
    }
}

void AppController::fileCopyProblem(const std::shared_ptr<CopyInfo>& info, int destination,
                                    const QString& reason) {
    const QString where = destination < 0
                              ? QString()
                              : QStringLiteral(" on ") + info->destinations.value(destination);
    QVLog::appendLog(u"Copy problem: %@%@: %@", info->source, where, reason);
    const std::shared_ptr<QVVolume> volume = volumeOf(*info);
    if (!volume)
        return;
    if (const std::shared_ptr<TransferLedger> ledger = volume->ledger())
        ledger->recordFailure(relativePathOf(*info, *volume), destination, reason);
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
