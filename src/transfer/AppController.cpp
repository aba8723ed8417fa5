// Construction and shared state of AppController.
#include "AppController.h"

#include "MainThread.h"
#include "Preferences.h"
#include "QVVolume.h"
#include "SettingsStore.h"

namespace {

// An empty list is repaired in memory as at start-up, so the first transfer already sees the
// default destination; the repair is not written back here.
std::vector<DestinationEntry> destinationsAtStart(SettingsStore& settings) {
    std::vector<DestinationEntry> list = Preferences(settings).destinationList();
    if (list.empty())
        list.push_back(Preferences::defaultDestination());
    return list;
}

}  // namespace

AppController::AppController(SettingsStore& settings, AppView& view, Notifier& notifier,
                             TransferStages* stages, std::shared_ptr<const Clock> clock,
                             FileLayer& fileLayer)
    : settings_(settings),
      view_(view),
      notifier_(notifier),
      stages_(stages ? *stages : *this),
      clock_(std::move(clock)),
      fileLayer_(fileLayer),
      destinationList_(destinationsAtStart(settings)) {}

AppController::~AppController() {
    lifetime_.reset();
}

void AppController::onMainThread(std::function<void()> fn, bool wait) {
    const std::weak_ptr<int> alive = lifetime_;
    MainThread::performOnMainThread(
        [alive, fn = std::move(fn)] {
            if (alive.lock())
                fn();
        },
        wait);
}

std::vector<std::shared_ptr<QVVolume>> AppController::dataArray() const {
    const std::lock_guard lock(dataMutex_);
    return dataArray_;
}

void AppController::setDataArray(const std::vector<std::shared_ptr<QVVolume>>& volumes) {
    const std::lock_guard lock(dataMutex_);
    dataArray_ = volumes;
}

std::vector<std::shared_ptr<QVVolume>> AppController::waitingObjects() const {
    const std::lock_guard lock(queueMutex_);
    return waitingObjects_;
}

QStringList AppController::reservedFileQueue() const {
    const std::lock_guard lock(lock_);
    return reservedFileQueue_;
}

void AppController::removeFromReservedFileQueue(const QStringList& paths) {
    const std::lock_guard lock(lock_);
    for (const QString& path : paths)
        reservedFileQueue_.removeAll(path);
}

qint64 AppController::threadCount() const {
    const std::lock_guard lock(queueMutex_);
    return threadCount_;
}

std::vector<DestinationEntry> AppController::destinationList() const {
    const std::lock_guard lock(dataMutex_);
    return destinationList_;
}

void AppController::setDestinationList(const std::vector<DestinationEntry>& list) {
    const std::lock_guard lock(dataMutex_);
    destinationList_ = list;
}

std::vector<std::shared_ptr<QVVolume>> AppController::selectedVolumes() const {
    const std::vector<std::shared_ptr<QVVolume>> volumes = dataArray();
    std::vector<std::shared_ptr<QVVolume>> selected;
    for (const int row : view_.selectedRows()) {
        if (row >= 0 && std::size_t(row) < volumes.size())
            selected.push_back(volumes[std::size_t(row)]);
    }
    return selected;
}

void AppController::removeFromDataArray(const std::vector<std::shared_ptr<QVVolume>>& volumes) {
    const std::lock_guard lock(dataMutex_);
    std::erase_if(dataArray_, [&](const auto& volume) {
        return std::find(volumes.begin(), volumes.end(), volume) != volumes.end();
    });
}

ToolbarState AppController::transferItem(bool asCancel) {
    ToolbarState state;
    state.transferLabel = asCancel ? QStringLiteral(" Cancel ") : QStringLiteral("Transfer");
    state.transferImage =
        asCancel ? QStringLiteral("stop-progress") : QStringLiteral("Transfer.png");
    state.transferEnabled = true;
    return state;
}

bool AppController::inImageMode() const {
    return settings_.integer(SettingsKey::transferType) != 0;
}
