// The controller's operations, each forwarded to the part that owns it.
#include "AppController.h"

#include "ControllerParts.h"

AppController::AppController(SettingsStore& settings, AppView& view, const Services& services,
                             TransferStages* stages)
    : settings_(settings),
      parts_(std::make_unique<ControllerParts>(settings, view, services, stages)) {}

AppController::~AppController() = default;

AppController::Volumes AppController::dataArray() const {
    return parts_->volumes.volumes();
}

void AppController::setDataArray(const Volumes& volumes) {
    parts_->volumes.setVolumes(volumes);
}

AppController::Volumes AppController::waitingObjects() const {
    return parts_->queue.waiting();
}

AppController::Volumes AppController::dropWaitingVolumes() {
    return parts_->queue.dropWaiting();
}

QStringList AppController::reservedFileQueue() const {
    return parts_->reservation.reserved();
}

void AppController::removeFromReservedFileQueue(const QStringList& paths) {
    parts_->reservation.release(paths);
}

qint64 AppController::threadCount() const {
    return parts_->queue.count();
}

std::vector<DestinationEntry> AppController::destinationList() const {
    return parts_->volumes.destinations();
}

void AppController::setDestinationList(const std::vector<DestinationEntry>& list) {
    parts_->volumes.setDestinations(list);
}

void AppController::addVolumeToQueue(const std::shared_ptr<QVVolume>& volume) {
    parts_->admission.addVolumeToQueue(volume);
}

void AppController::processNextQueueItem() {
    parts_->admission.processNextQueueItem();
}

void AppController::checkDoneFlagForVolume(const std::shared_ptr<QVVolume>& volume) {
    parts_->admission.checkDoneFlagForVolume(volume);
}

void AppController::processVolumeWithSettings(const TransferSettings& settings) {
    parts_->processing.processVolumeWithSettings(settings);
}

QStringList AppController::reserveDestinations(const QStringList& destinations,
                                               const QString& projectTitle, QVVolume& volume) {
    return parts_->processing.reserveDestinations(destinations, projectTitle, volume);
}

QString AppController::reserveDestination(const QString& destination, const QString& projectTitle,
                                          QVVolume& volume) {
    return parts_->processing.reserveDestination(destination, projectTitle, volume);
}

bool AppController::copyDisk(const QString& path, const QStringList& destinations,
                             const std::shared_ptr<QVVolume>& volume) {
    return parts_->copy.copyDisk(path, destinations, volume);
}

bool AppController::copyItem(const QString& item, const QStringList& destinations,
                             const QString& relativeSource,
                             const std::shared_ptr<QVVolume>& volume) {
    return parts_->copy.copyItem(item, destinations, relativeSource, volume);
}

void AppController::copyFilesWithSettings(const CopyFilesSettings& settings) {
    parts_->copy.copyFilesWithSettings(settings);
}

void AppController::copyFiles(const QStringList& names, const std::shared_ptr<QVVolume>& volume) {
    parts_->copy.copyFiles(names, volume);
}

bool AppController::createDiskImage(const QString& imagePath, const QString& volumePath) {
    return parts_->copy.createDiskImage(imagePath, volumePath);
}

int AppController::verifyDiskImage(const QString& imagePath, QVVolume& volume) {
    return parts_->verifier.verifyDiskImage(imagePath, volume);
}

void AppController::verifyVolume(const std::shared_ptr<QVVolume>& volume,
                                 const QString& destination) {
    parts_->verifier.verifyVolume(volume, destination);
}

std::shared_ptr<CopyDelegate> AppController::copierFor(const std::shared_ptr<QVVolume>& volume) {
    return parts_->progressView.copierFor(volume);
}

float AppController::totalProgressForAllVolumes() const {
    return parts_->progressView.totalProgressForAllVolumes();
}

void AppController::finishVolume(const std::shared_ptr<QVVolume>& volume) {
    parts_->completion.finishVolume(volume);
}

void AppController::cancelVolume(QVVolume& volume) {
    parts_->completion.cancelVolume(volume);
}

void AppController::incrementFailureCountForVolume(QVVolume& volume) {
    parts_->completion.incrementFailureCountForVolume(volume);
}

void AppController::cancelSelectedTransfers() {
    parts_->completion.cancelSelectedTransfers();
}

bool AppController::stopRunningTransfers() {
    return parts_->completion.stopRunningTransfers();
}

bool AppController::applicationShouldTerminate() {
    return parts_->completion.applicationShouldTerminate();
}

void AppController::eject() {
    parts_->cards.eject();
}

bool AppController::ejectVolume(QVVolume& volume) {
    return parts_->cards.ejectVolume(volume);
}

void AppController::erase() {
    parts_->cards.erase();
}

void AppController::eraseVolume(const std::shared_ptr<QVVolume>& volume) {
    parts_->cards.eraseVolume(volume);
}

void AppController::eraseVolumeOnThread(const std::shared_ptr<QVVolume>& volume) {
    parts_->cards.eraseVolumeOnThread(volume);
}

void AppController::performPostActions(const std::shared_ptr<QVVolume>& volume) {
    parts_->postActions.performPostActions(volume);
}

void AppController::startUp(const QStringList& arguments) {
    parts_->discovery.startUp(arguments);
}

void AppController::populateVolumes() {
    parts_->discovery.populateVolumes();
}

std::shared_ptr<QVVolume> AppController::addVolumeLocationToList(const QString& path,
                                                                 bool isFolder) {
    return parts_->discovery.addVolumeLocationToList(path, isFolder);
}

void AppController::volumeDidMount(const QString& path) {
    parts_->discovery.volumeDidMount(path);
}

void AppController::volumeDidUnmount(const QString& path) {
    parts_->discovery.volumeDidUnmount(path);
}

void AppController::startWatchingMounts() {
    parts_->discovery.startWatchingMounts();
}

void AppController::transfer() {
    parts_->discovery.transfer();
}

void AppController::toggleCardsweep() {
    parts_->discovery.toggleCardsweep();
}

void AppController::openVolumeFromArguments(const QStringList& arguments) {
    parts_->discovery.openVolumeFromArguments(arguments);
}

void AppController::ignore() {
    parts_->discovery.ignore();
}

void AppController::resetIgnoredVolumes() {
    parts_->discovery.resetIgnoredVolumes();
}

void AppController::showInfo() {
    parts_->discovery.showInfo();
}

void AppController::importFolders(const QStringList& folders) {
    parts_->discovery.importFolders(folders);
}

bool AppController::cardsweepEnabled() const {
    return parts_->jobs.cardsweepEnabled();
}

void AppController::keepAutomaticModeOn() {
    parts_->jobs.keepAutomaticModeOn();
}

void AppController::startListener() {
    parts_->jobs.startListener();
}

void AppController::stopListener() {
    parts_->jobs.stopListener();
}

void AppController::startSetupJob() {
    parts_->jobs.startSetupJob();
}

void AppController::stopSetupJob() {
    parts_->jobs.stopSetupJob();
}

void AppController::updateToolbarForTableSelection() {
    parts_->presentation.updateToolbarForTableSelection();
}

void AppController::refreshTotalRemainingSpace() {
    parts_->presentation.refreshTotalRemainingSpace();
}

void AppController::showDestinationSummary() {
    parts_->presentation.showDestinationSummary();
}

void AppController::reloadVolumeList() {
    parts_->presentation.reloadVolumeList();
}

void AppController::changeDestinationList(const std::vector<DestinationEntry>& list) {
    parts_->presentation.changeDestinationList(list);
}

void AppController::addDestinations(const QStringList& folders) {
    parts_->presentation.addDestinations(folders);
}

void AppController::setVolumeListValue(int row, const QString& column, const QString& value) {
    parts_->presentation.setVolumeListValue(row, column, value);
}
