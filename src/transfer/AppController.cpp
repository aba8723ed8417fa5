// Construction and shared state of AppController.
#include "AppController.h"

#include "MainThread.h"
#include "MountService.h"
#include "Preferences.h"
#include "QVVolume.h"
#include "SettingsStore.h"

namespace {

// An empty list is repaired in memory as at start-up, so the first transfer already sees the
// default destination; the repair is not written back here.
std::vector<DestinationEntry> destinationsAtStart(SettingsStore& settings) {
    std::vector<DestinationEntry> list = Preferences(settings).destinationList();
    if (list.empty())
        list.push_back(SettingsKey::defaultDestination());
    return list;
}

constexpr std::chrono::milliseconds kViewUpdateInterval{100};

}  // namespace

AppController::AppController(SettingsStore& settings, AppView& view, const Services& services,
                             TransferStages* stages)
    : settings_(settings),
      view_(view),
      services_(services),
      stages_(stages ? *stages : ownStages_),
      fileLayer_(services.files),
      fileManager_(services.files, services.authorization),
      launchd_(services.processes, services.paths, services.authorization,
               [this](const QString& title, const QString& text) {
                   onMainThread(
                       [this, title, text] {
                           view_.showSheet({title, QStringLiteral("OK"), {}, {}, text});
                       },
                       true);
               }),
      volumes_(destinationsAtStart(settings)),
      reservation_(services.clock, services.files),
      images_(services.files, services.mounts),
      verification_(services.files,
                    [this](const std::shared_ptr<QVVolume>& volume, std::uint64_t bytes) {
                        verificationProgressUpdate(bytes, *volume);
                        updates_.changed(volume);
                    }),
      updates_(
          [&view](const VolumeUpdates::Snapshots& snapshots) { view.volumesChanged(snapshots); },
          kViewUpdateInterval) {
    buildPostActions();
}

AppController::~AppController() {
    if (watchingMounts_)
        services_.mounts.stopWatching();
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

void AppController::publish(const std::shared_ptr<QVVolume>& volume, bool wait) {
    updates_.changed(volume);
    onMainThread([this] { reloadVolumeList(); }, wait);
}

std::vector<std::shared_ptr<QVVolume>> AppController::dataArray() const {
    return volumes_.volumes();
}

void AppController::setDataArray(const std::vector<std::shared_ptr<QVVolume>>& volumes) {
    volumes_.setVolumes(volumes);
}

std::vector<std::shared_ptr<QVVolume>> AppController::waitingObjects() const {
    return queue_.waiting();
}

std::vector<std::shared_ptr<QVVolume>> AppController::dropWaitingVolumes() {
    return queue_.dropWaiting();
}

QStringList AppController::reservedFileQueue() const {
    return reservation_.reserved();
}

void AppController::removeFromReservedFileQueue(const QStringList& paths) {
    reservation_.release(paths);
}

qint64 AppController::threadCount() const {
    return queue_.count();
}

std::vector<DestinationEntry> AppController::destinationList() const {
    return volumes_.destinations();
}

void AppController::setDestinationList(const std::vector<DestinationEntry>& list) {
    volumes_.setDestinations(list);
}

std::vector<std::shared_ptr<QVVolume>> AppController::selectedVolumes() const {
    return volumes_.atRows(view_.selectedRows());
}

ToolbarState AppController::transferItem(bool asCancel) {
    ToolbarState state;
    state.transferLabel = asCancel ? QStringLiteral(" Cancel ") : QStringLiteral("Transfer");
    state.transferImage =
        asCancel ? QStringLiteral("stop-progress") : QStringLiteral("Transfer.png");
    state.transferEnabled = true;
    return state;
}

std::shared_ptr<const TransferOptions> AppController::optionsOf(QVVolume& volume) const {
    if (auto options = volume.transferOptions())
        return options;
    auto options = TransferOptions::read(settings_);
    volume.setTransferOptions(options);
    return options;
}
