#include "ControllerParts.h"

#include "AppView.h"
#include "Preferences.h"

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

ControllerParts::ControllerParts(SettingsStore& settings, AppView& view, const Services& given,
                                 TransferStages* stages)
    : services(given),
      fileManager(given.files, given.authorization),
      volumes(destinationsAtStart(settings)),
      reservation(given.clock, given.files),
      images(given.files, given.mounts),
      verification(given.files,
                   [this](const std::shared_ptr<QVVolume>& volume, std::uint64_t bytes) {
                       verifier.verificationProgressUpdate(bytes, *volume);
                       updates.changed(volume);
                   }),
      updates(
          [&view](const VolumeUpdates::Snapshots& snapshots) { view.volumesChanged(snapshots); },
          kViewUpdateInterval),
      context{settings, view,  services,    given.files, fileManager, stages ? *stages : ownStages,
              volumes,  queue, reservation, progress,    images,      verification,
              updates,  *this, lifetime} {}

ControllerParts::~ControllerParts() {
    lifetime.reset();
}

void ControllerParts::processVolumeWithSettings(const TransferSettings& settings) {
    processing.processVolumeWithSettings(settings);
}

void ControllerParts::addVolumeToQueue(const std::shared_ptr<QVVolume>& volume) {
    admission.addVolumeToQueue(volume);
}

void ControllerParts::processNextQueueItem() {
    admission.processNextQueueItem();
}

void ControllerParts::decrementThreadCount() {
    admission.decrementThreadCount();
}

void ControllerParts::releaseSlot(QVVolume& volume) {
    admission.releaseSlot(volume);
}

void ControllerParts::checkDoneFlagForVolume(const std::shared_ptr<QVVolume>& volume) {
    admission.checkDoneFlagForVolume(volume);
}

void ControllerParts::recallCardMetadata(QVVolume& volume) {
    admission.recallCardMetadata(volume);
}

void ControllerParts::claimCardMetadata(const std::shared_ptr<QVVolume>& volume) {
    admission.claimCardMetadata(volume);
}

std::uint64_t ControllerParts::transferSize(QVVolume& volume) {
    return processing.transferSize(volume);
}

void ControllerParts::writeChecksumFileForVolume(QVVolume& volume) {
    copy.writeChecksumFileForVolume(volume);
}

void ControllerParts::markEndedEarly(const std::shared_ptr<QVVolume>& volume,
                                     const QString& cardPath, const QDateTime& started) {
    copy.markEndedEarly(volume, cardPath, started);
}

std::shared_ptr<CopyDelegate> ControllerParts::copierFor(const std::shared_ptr<QVVolume>& volume) {
    return progressView.copierFor(volume);
}

void ControllerParts::advanceProgress(const std::shared_ptr<QVVolume>& volume, double bytes) {
    progressView.advanceProgress(volume, bytes);
}

void ControllerParts::showOverallProgress() {
    progressView.showOverallProgress();
}

void ControllerParts::finishVolume(const std::shared_ptr<QVVolume>& volume) {
    completion.finishVolume(volume);
}

void ControllerParts::cancelVolume(QVVolume& volume) {
    completion.cancelVolume(volume);
}

void ControllerParts::incrementFailureCountForVolume(QVVolume& volume) {
    completion.incrementFailureCountForVolume(volume);
}

void ControllerParts::endTransfer(const std::shared_ptr<QVVolume>& volume) {
    completion.endTransfer(volume);
}

void ControllerParts::stopCancelledTransfer(const std::shared_ptr<QVVolume>& volume,
                                            const QStringList& reserved) {
    completion.stopCancelledTransfer(volume, reserved);
}

bool ControllerParts::isBeingRemoved(const std::shared_ptr<QVVolume>& volume) {
    return completion.isBeingRemoved(volume);
}

void ControllerParts::cancelSelectedTransfers() {
    completion.cancelSelectedTransfers();
}

bool ControllerParts::ejectVolume(QVVolume& volume) {
    return cards.ejectVolume(volume);
}

std::optional<QString> ControllerParts::eraseRefusal(const QVVolume& volume) {
    return cards.eraseRefusal(volume);
}

void ControllerParts::performPostActions(const std::shared_ptr<QVVolume>& volume) {
    postActions.performPostActions(volume);
}

bool ControllerParts::cardsweepEnabled() {
    return jobs.cardsweepEnabled();
}

void ControllerParts::startListener() {
    jobs.startListener();
}

void ControllerParts::stopListener() {
    jobs.stopListener();
}

void ControllerParts::startSetupJob() {
    jobs.startSetupJob();
}

void ControllerParts::stopSetupJob() {
    jobs.stopSetupJob();
}

void ControllerParts::reloadVolumeList() {
    presentation.reloadVolumeList();
}

void ControllerParts::updateToolbarForTableSelection() {
    presentation.updateToolbarForTableSelection();
}

void ControllerParts::refreshTotalRemainingSpace() {
    presentation.refreshTotalRemainingSpace();
}

ToolbarState ControllerParts::toolbarForSelection() {
    return presentation.toolbarForSelection();
}

bool ControllerParts::selectionIsBusy() {
    return presentation.selectionIsBusy();
}

ToolbarState ControllerParts::transferItem(bool asCancel) {
    return presentation.transferItem(asCancel);
}
