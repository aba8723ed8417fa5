#include "TransferProgress.h"

#include <cmath>

#include "QVVolume.h"

namespace {

constexpr double kRefreshStep = 4194304.0;  // 4 MiB
constexpr qint64 kVerificationRefreshMs = 3000;

}  // namespace

bool TransferProgress::advance(QVVolume& volume, double bytes) {
    const std::lock_guard lock(mutex_);
    const double shown = volume.progressBar().doubleValue;
    volume.incrementProgress(bytes);
    double& since = sinceRefresh_[&volume];
    since += volume.progressBar().doubleValue - shown;
    if (since <= kRefreshStep)
        return false;
    since = 0;
    return true;
}

bool TransferProgress::advanceVerification(QVVolume& volume, double bytes, const QDateTime& now) {
    const std::lock_guard lock(mutex_);
    volume.incrementProgress(bytes);
    const auto last = volume.lastProgressUpdate();
    if (last && last->msecsTo(now) < kVerificationRefreshMs)
        return false;
    volume.setLastProgressUpdate(now);
    return true;
}

void TransferProgress::forget(const QVVolume& volume) {
    const std::lock_guard lock(mutex_);
    sinceRefresh_.erase(&volume);
}

std::optional<int> TransferProgress::percentChange(float overall) {
    const bool running = overall < 1.0f;
    const int percent = running ? int(std::lround(double(overall) * 100.0)) : -1;
    if (shownPercent_.exchange(percent) == percent)
        return std::nullopt;
    return percent;
}
