#pragma once
// The transfer logic of the application, as one named front over its parts (ControllerParts):
// admission and the queue, processing, the volume copy, verification, completion, the card
// commands, the post actions, discovery and presentation. Each operation here forwards to the
// part that owns it; the parts keep their own locks and say where they run.
//
// The view is called on the main thread, except transferDidEnd, which comes from the thread
// that ended the transfer; volumesChanged brings snapshots, throttled. Every entry point that
// may run on a thread of its own logs an exception and ends there.

#include <QString>
#include <QStringList>
#include <memory>
#include <optional>
#include <vector>

#include "AppView.h"
#include "DestinationEntry.h"
#include "QVVolume.h"
#include "Services.h"
#include "TransferSettings.h"

class CopyDelegate;
class SettingsStore;
class TransferStages;
struct ControllerParts;

class AppController {
  public:
    using Volumes = std::vector<std::shared_ptr<QVVolume>>;

    /// With no stages given, the controller's own copy and verification take over.
    AppController(SettingsStore& settings, AppView& view, const Services& services,
                  TransferStages* stages = nullptr);
    ~AppController();
    AppController(const AppController&) = delete;
    AppController& operator=(const AppController&) = delete;

    // ---- State
    Volumes dataArray() const;
    void setDataArray(const Volumes& volumes);
    Volumes waitingObjects() const;
    /// Empties the waiting list and returns what it held, so nothing more starts (shutting down).
    Volumes dropWaitingVolumes();
    QStringList reservedFileQueue() const;
    void removeFromReservedFileQueue(const QStringList& paths);
    qint64 threadCount() const;
    std::vector<DestinationEntry> destinationList() const;
    void setDestinationList(const std::vector<DestinationEntry>& list);
    SettingsStore& settings() const { return settings_; }
    /// The parts, for the tests that reach one directly.
    ControllerParts& parts() { return *parts_; }

    // ---- Queue and processing (TransferAdmission, VolumeProcessing)
    void addVolumeToQueue(const std::shared_ptr<QVVolume>& volume);
    void processNextQueueItem();
    void checkDoneFlagForVolume(const std::shared_ptr<QVVolume>& volume);
    void processVolumeWithSettings(const TransferSettings& settings);
    QStringList reserveDestinations(const QStringList& destinations, const QString& projectTitle,
                                    QVVolume& volume);
    QString reserveDestination(const QString& destination, const QString& projectTitle,
                               QVVolume& volume);

    // ---- Copy and verification (VolumeCopyStage, VerificationStage, ProgressPublisher)
    bool copyDisk(const QString& path, const QStringList& destinations,
                  const std::shared_ptr<QVVolume>& volume);
    bool copyItem(const QString& item, const QStringList& destinations,
                  const QString& relativeSource, const std::shared_ptr<QVVolume>& volume);
    void copyFilesWithSettings(const CopyFilesSettings& settings);
    void copyFiles(const QStringList& names, const std::shared_ptr<QVVolume>& volume);
    bool createDiskImage(const QString& imagePath, const QString& volumePath);
    int verifyDiskImage(const QString& imagePath, QVVolume& volume);
    void verifyVolume(const std::shared_ptr<QVVolume>& volume,
                      const QString& destination = QString());
    std::shared_ptr<CopyDelegate> copierFor(const std::shared_ptr<QVVolume>& volume);
    float totalProgressForAllVolumes() const;

    // ---- Completion and the card commands (TransferCompletion, CardCommands, PostActionSteps)
    void finishVolume(const std::shared_ptr<QVVolume>& volume);
    void cancelVolume(QVVolume& volume);
    void incrementFailureCountForVolume(QVVolume& volume);
    void cancelSelectedTransfers();
    bool stopRunningTransfers();
    bool applicationShouldTerminate();
    void eject();
    bool ejectVolume(QVVolume& volume);
    void erase();
    void eraseVolume(const std::shared_ptr<QVVolume>& volume);
    void eraseVolumeOnThread(const std::shared_ptr<QVVolume>& volume);
    void performPostActions(const std::shared_ptr<QVVolume>& volume);

    // ---- Discovery and the automatic mode (VolumeDiscovery, ListenerJobs)
    void startUp(const QStringList& arguments);
    void populateVolumes();
    std::shared_ptr<QVVolume> addVolumeLocationToList(const QString& path, bool isFolder = false);
    void volumeDidMount(const QString& path);
    void volumeDidUnmount(const QString& path);
    void startWatchingMounts();
    void transfer();
    void toggleCardsweep();
    void openVolumeFromArguments(const QStringList& arguments);
    void ignore();
    void resetIgnoredVolumes();
    void showInfo();
    void importFolders(const QStringList& folders);
    bool cardsweepEnabled() const;
    void keepAutomaticModeOn();
    void startListener();
    void stopListener();
    void startSetupJob();
    void stopSetupJob();

    // ---- Presentation (VolumePresentation); main thread only
    void updateToolbarForTableSelection();
    void refreshTotalRemainingSpace();
    void showDestinationSummary();
    void reloadVolumeList();
    void changeDestinationList(const std::vector<DestinationEntry>& list);
    void addDestinations(const QStringList& folders);
    void setVolumeListValue(int row, const QString& column, const QString& value);

  private:
    SettingsStore& settings_;
    std::unique_ptr<ControllerParts> parts_;
};
