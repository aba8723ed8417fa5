// Construction and shared state of AppController.
#include "AppController.h"

#include "MainThread.h"
#include "Preferences.h"
#include "QVVolume.h"
#include "SettingsStore.h"

AppController::AppController(SettingsStore& settings, AppView& view, Notifier& notifier,
                             TransferStages* stages, std::shared_ptr<const Clock> clock,
                             FileLayer& fileLayer)
    : settings_(settings),
      view_(view),
      notifier_(notifier),
      stages_(stages ? *stages : *this),
      clock_(std::move(clock)),
      fileLayer_(fileLayer),
      destinationList_(Preferences(settings).destinationList()) {}

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

bool AppController::inImageMode() const {
    return settings_.integer(SettingsKey::transferType) != 0;
}
