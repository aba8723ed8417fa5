#pragma once
// The transfer logic of the application, as one named front over parts that own their state:
// the volume list, the transfer queue, destination reservation, progress, disk images,
// verification, the per-volume copier and the post actions. Its operations are split by concern
// over AppController*.cpp; the parts keep their own locks, and the controller's own two guard
// only the "Confirm & Remove" requests and one listing of the mounted cards at a time.
//
// The view is called on the main thread, except transferDidEnd, which comes from the thread
// that ended the transfer; volumesChanged brings snapshots, throttled. Every entry point that
// may run on a thread of its own logs an exception and ends there.

#include <QString>
#include <QStringList>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <vector>

#include "AppView.h"
#include "Clock.h"
#include "ControllerStages.h"
#include "DestinationEntry.h"
#include "DestinationReservation.h"
#include "DiskImages.h"
#include "PostActions.h"
#include "QVFileManager.h"
#include "QVLaunchd.h"
#include "QVVolume.h"
#include "Services.h"
#include "TransferOptions.h"
#include "TransferProgress.h"
#include "TransferQueue.h"
#include "TransferReport.h"
#include "TransferSettings.h"
#include "TransferStages.h"
#include "VolumeList.h"
#include "VolumeUpdates.h"
#include "VolumeVerification.h"

class CopyDelegate;
class FileLayer;
class SettingsStore;
class VolumeCopy;

class AppController {
  public:
    /// With no stages given, the controller's own copy and verification take over.
    AppController(SettingsStore& settings, AppView& view, const Services& services,
                  TransferStages* stages = nullptr);
    ~AppController();
    AppController(const AppController&) = delete;
    AppController& operator=(const AppController&) = delete;

    // ---- State
    std::vector<std::shared_ptr<QVVolume>> dataArray() const;
    void setDataArray(const std::vector<std::shared_ptr<QVVolume>>& volumes);
    std::vector<std::shared_ptr<QVVolume>> waitingObjects() const;
    /// Empties the waiting list and returns what it held, so nothing more starts (shutting down).
    std::vector<std::shared_ptr<QVVolume>> dropWaitingVolumes();
    QStringList reservedFileQueue() const;
    void removeFromReservedFileQueue(const QStringList& paths);
    qint64 threadCount() const;
    std::vector<DestinationEntry> destinationList() const;
    void setDestinationList(const std::vector<DestinationEntry>& list);
    SettingsStore& settings() const { return settings_; }

    // ---- Queue (AppControllerQueue.cpp)
    /// Starts a worker for the volume now, or queues it when every slot is taken.
    void addVolumeToQueue(const std::shared_ptr<QVVolume>& volume);
    /// Starts the head of the waiting list (called when a slot has just been freed).
    void processNextQueueItem();
    void incrementThreadCount();
    void decrementThreadCount();
    /// Ends a worker's turn: gives back the slot and, once the volume's own threads are done,
    /// starts the next waiting volume.
    void releaseSlot(QVVolume& volume);
    /// Marks a freshly listed card "Done" when its marker is newer than everything on it;
    /// deletes a stale marker.
    void checkDoneFlagForVolume(const std::shared_ptr<QVVolume>& volume);
    /// The card's identity across mounts and restarts: its file system's UUID (else its
    /// partition's); empty for a folder or when unknown.
    QString cardIdentity(const QVVolume& volume) const;
    /// A listed card that started a transfer here before shows the values that transfer used.
    void recallCardMetadata(QVVolume& volume);
    /// The transfer starts: its numbers are spent and remembered for the card, the transfer's
    /// date recorded, and the other listed cards show the numbers they would get now.
    void claimCardMetadata(const std::shared_ptr<QVVolume>& volume);

    // ---- Processing (AppControllerProcessing.cpp)
    /// The worker: checks the source, reserves destinations and hands over to a stage.
    void processVolumeWithSettings(const TransferSettings& settings);
    QStringList reserveDestinations(const QStringList& destinations, const QString& projectTitle,
                                    QVVolume& volume);
    /// A path under destination no transfer has written to or claimed. A numbered path (and an
    /// image path) is held in the reserved queue from here on, until processing has made the
    /// folder or the transfer ends.
    QString reserveDestination(const QString& destination, const QString& projectTitle,
                               QVVolume& volume);

    // ---- Volume copy (AppControllerVolumeCopy.cpp)
    /// Copies the card file by file to every destination, writes the manifests, sets the
    /// outcome and finishes the volume. Always true: failures are recorded in the volume.
    bool copyDisk(const QString& path, const QStringList& destinations,
                  const std::shared_ptr<QVVolume>& volume);
    bool copyItem(const QString& item, const QStringList& destinations,
                  const QString& relativeSource, const std::shared_ptr<QVVolume>& volume);
    /// Copies the named entries of the volume into its destinations; no manifest, no outcome.
    void copyFilesWithSettings(const CopyFilesSettings& settings);
    void copyFiles(const QStringList& names, const std::shared_ptr<QVVolume>& volume);
    /// Reads the block device behind the volume raw into a read-only image, digesting both on
    /// the way (AppControllerDiskImage.cpp). True once a device was found.
    bool createDiskImage(const QString& imagePath, const QString& volumePath);
    /// Re-reads the image and compares its digest with the device's; 0 when they agree (the
    /// image check of verification). Waits while the image is still being written.
    int verifyDiskImage(const QString& imagePath, QVVolume& volume);
    /// The manifest (digest TAB name LF) into every destination, from the transfer's ledger;
    /// one that can't be written whole makes that destination incomplete.
    void writeChecksumFileForVolume(QVVolume& volume);
    /// The list for the standard checksum tools beside the manifest, one destination's.
    void writeChecksumList(const TransferLedger& ledger, std::size_t destination,
                           const QByteArray& folder, DigestContext::Kind kind);
    /// Files that contradict the card's own ASC MHL history become failures (before manifests).
    void checkCardHistory(QVVolume& volume, const QString& cardPath);
    /// The transfer report beside every destination's manifest.
    void writeReportForVolume(QVVolume& volume, const QString& cardPath,
                              const TransferReport::Content& report);
    /// What the report says of this transfer, from its ledger and the volume.
    TransferReport::Content reportContent(QVVolume& volume, const QDateTime& start);
    /// Continues the ASC MHL history of every complete destination (after every sidecar).
    void writeHistoryForVolume(QVVolume& volume, const QString& cardRecord);

    // ---- Progress (AppControllerProgress.cpp)
    /// The copy engine's delegate for one volume's transfer.
    std::shared_ptr<CopyDelegate> copierFor(const std::shared_ptr<QVVolume>& volume);
    /// Share of the work done over every listed volume (NaN with none).
    float totalProgressForAllVolumes() const;
    /// The window's title and the launcher's progress: the overall share while anything runs,
    /// the plain title and no progress otherwise.
    void showOverallProgress();

    // ---- Verification (AppControllerVerification.cpp)
    void verifyVolume(const std::shared_ptr<QVVolume>& volume,
                      const QString& destination = QString());
    using SizeMap = VolumeVerification::SizeMap;
    std::optional<SizeMap> fileSizeDictForFolder(const QString& folder,
                                                 const QString& basePath = QString()) const;
    SizeMap fileSizeDictForPaths(const QStringList& paths, const QString& basePath) const;
    void checksumDictForFolder(const QString& folder, const QString& basePath,
                               const std::shared_ptr<QVVolume>& volume, bool isSource);
    void checksumDictForFiles(const QStringList& paths, const QString& basePath,
                              const std::shared_ptr<QVVolume>& volume, bool isSource);
    void checksumFile(const QString& path, const QString& basePath,
                      const std::shared_ptr<QVVolume>& volume, bool isSource);
    void verificationProgressUpdate(std::uint64_t bytes, QVVolume& volume);

    // ---- Completion (AppControllerCompletion.cpp)
    void finishVolume(const std::shared_ptr<QVVolume>& volume);
    void cancelVolume(QVVolume& volume);
    void incrementFailureCountForVolume(QVVolume& volume);
    /// The Transfer command on a busy selection: asks, then cancels (and with "Confirm &
    /// Remove" deletes the reserved destination folders).
    void cancelSelectedTransfers();
    /// Shutting down: every running copy is cancelled and marked as stopped before it was
    /// verified. True when there was any.
    bool stopRunningTransfers();
    /// False when the user keeps the application open over running file operations.
    bool applicationShouldTerminate();
    /// Eject command: cards are unmounted and powered off, folder rows dropped.
    void eject();
    /// Unmounts the card and powers it off; false (logged) when it stays.
    bool ejectVolume(QVVolume& volume);
    /// Erase command: refuses, naming each, cards without a verified copy; otherwise asks
    /// (Cancel being the default), then reformats each selected card in its own format on a
    /// thread of its own.
    void erase();
    /// Why the card must not be erased (e.g. "it has not been transferred since it was
    /// listed"); nothing when its transfer in this run ended complete and verified everywhere.
    std::optional<QString> eraseRefusal(const QVVolume& volume) const;
    void eraseVolume(const std::shared_ptr<QVVolume>& volume);
    /// Refuses folders and any card sharing a device with "/" or a destination.
    void eraseVolumeOnThread(const std::shared_ptr<QVVolume>& volume);
    /// Runs after a successful transfer, on a thread of its own.
    void performPostActions(const std::shared_ptr<QVVolume>& volume);

    // ---- Discovery (AppControllerDiscovery.cpp)
    /// Start-up: lists the mounted cards, names offline destination drives, and in automatic
    /// mode queues the card named by "-cardsweepVolume PATH" if it is listed by then. Mount
    /// events are the caller's: whoever owns the mount monitor forwards them to volumeDidMount
    /// and volumeDidUnmount.
    void startUp(const QStringList& arguments);
    void populateVolumes();
    std::shared_ptr<QVVolume> addVolumeLocationToList(const QString& path, bool isFolder = false);
    void volumeDidMount(const QString& path);
    void volumeDidUnmount(const QString& path);
    /// Hears of mounts from now on (main thread): a card that could be one is listed, one
    /// that goes away leaves the list, interrupting its transfer.
    void startWatchingMounts();
    /// The automatic mode (queue recognised cards as they are mounted): on while the listener
    /// job is installed, or for this run after keepAutomaticModeOn.
    bool cardsweepEnabled() const;
    /// Automatic mode for the life of this controller, whatever the jobs say (`watch`).
    void keepAutomaticModeOn() { automaticForThisRun_ = true; }
    static constexpr const char* listenerLabel = "com.quorvant.Cardsweep";
    static constexpr const char* setupLabel = "com.quorvant.CardsweepSetup";
    /// The background jobs that bring the program up when a card is mounted.
    void startListener();
    void stopListener();
    void startSetupJob();
    void stopSetupJob();
    QVLaunchd& launchd() { return launchd_; }
    /// Starts the selected volumes, or, while one of them runs or waits for its turn, is the
    /// cancel command.
    void transfer();
    void toggleCardsweep();
    /// A later start's "-cardsweepVolume MOUNTPOINT" under the automatic mode: a card not
    /// listed yet is listed and queued as a mount would be; a listed one was already seen.
    void openVolumeFromArguments(const QStringList& arguments);
    void ignore();
    void resetIgnoredVolumes();
    void showInfo();
    void importFolders(const QStringList& folders);

    // ---- Presentation (AppControllerPresentation.cpp); main thread only
    void updateToolbarForTableSelection();
    void refreshTotalRemainingSpace();
    /// The line over the list saying where copies go, warning of one on the system disk.
    void showDestinationSummary();
    void reloadVolumeList();
    /// The destination list as the preferences edit it: kept, stored at once, and the free
    /// space shown again.
    void changeDestinationList(const std::vector<DestinationEntry>& list);
    /// Appends each folder not already listed (exactly that path), ticked.
    void addDestinations(const QStringList& folders);
    /// An edit in the volume list: "colDestination" takes one destination path (empty: every
    /// ticked one); a metadata column stores the value in the volume and as the field's new
    /// default, so the next card starts from it.
    void setVolumeListValue(int row, const QString& column, const QString& value);

  private:
    void startHelperJob(const char* label, bool setup);
    /// The erase sheet's line for the card: name, format, size, and its verified copies.
    QString eraseDetails(const QVVolume& volume) const;
    /// Deletes what a transfer wrote into a destination, never another transfer's copy in it.
    void removeTransferredFiles(const QString& destination);
    QStringList chooseDestinations(const QVVolume& volume);
    void startWorker(const std::shared_ptr<QVVolume>& volume, const QStringList& destinations);
    void markFailed(const std::shared_ptr<QVVolume>& volume, const QString& reason);
    /// Tells the view, once per transfer, that the volume's transfer has ended for good.
    void endTransfer(const std::shared_ptr<QVVolume>& volume);
    void announceEnd(const std::shared_ptr<QVVolume>& volume);
    /// Stops a cancelled volume's transfer where it stands (see the definition); once per
    /// transfer.
    void stopCancelledTransfer(const std::shared_ptr<QVVolume>& volume,
                               const QStringList& reserved);
    /// What the bar counts for one copy of the volume: the whole device in disk mode.
    std::uint64_t transferSize(QVVolume& volume) const;
    /// The toolbar for the selected volumes.
    ToolbarState toolbarForSelection() const;
    /// Some selected volume is running or waiting for its turn (so Transfer cancels).
    bool selectionIsBusy() const;
    void postTransferFailed(const QVVolume& volume);
    /// What the volume's transfer was admitted with; read from the settings now for a stage
    /// reached without admission.
    std::shared_ptr<const TransferOptions> optionsOf(QVVolume& volume) const;
    bool inImageMode(QVVolume& volume) const { return optionsOf(volume)->diskImage; }
    /// Runs fn on the main thread (see MainThread); a request still queued when the controller
    /// goes is dropped.
    void onMainThread(std::function<void()> fn, bool wait);
    /// The volume changed: the view gets its snapshot soon, and the list is redrawn.
    void publish(const std::shared_ptr<QVVolume>& volume, bool wait = false);
    /// copyErrors: per destination, errno of the failure that put it out of use, else 0;
    /// freeAtStart: the space each destination had when the copy began.
    void setOutcome(QVVolume& volume, bool copyFailed, const std::vector<int>& copyErrors = {},
                    const std::vector<std::uint64_t>& freeAtStart = {});
    /// "No space left on NAME (needs X, Y free)" for each full destination, then the complete
    /// ones; empty when no destination ran out of space.
    QString fullDestinationsText(QVVolume& volume, const std::vector<int>& copyErrors,
                                 const std::vector<std::uint64_t>& freeAtStart) const;
    /// A transfer that ended early marks the folders it wrote into (manifest, report), unless
    /// they are being removed.
    void markEndedEarly(const std::shared_ptr<QVVolume>& volume, const QString& cardPath,
                        const QDateTime& started);
    bool isDestinationDrive(const QString& path) const;
    bool stoppedByCancel(const std::shared_ptr<QVVolume>& volume, const QStringList& reserved);
    /// The volumes of the view's selected rows, in row order.
    std::vector<std::shared_ptr<QVVolume>> selectedVolumes() const;
    /// The toolbar with its Transfer item as " Cancel " or as "Transfer".
    static ToolbarState transferItem(bool asCancel);
    /// A walk of the volume's items into these destinations, checked as the settings say.
    std::unique_ptr<VolumeCopy> startVolumeCopy(const std::shared_ptr<QVVolume>& volume,
                                                const QStringList& destinations,
                                                const QString& relativeSource);
    bool copyVolumeItems(const QString& path, const QStringList& destinations,
                         const std::shared_ptr<QVVolume>& volume, std::vector<int>* copyErrors);
    /// Adds copied or read-back bytes to the volume's bar, refreshing the view now and then.
    void advanceProgress(const std::shared_ptr<QVVolume>& volume, double bytes);
    /// A copy of the volume read back damaged: counted, shown for review, notified.
    void damagedCopy(const std::shared_ptr<QVVolume>& volume);
    /// The digest verification uses: the manifest's.
    DigestContext::Kind verificationKind(QVVolume& volume) const;
    /// The ordered steps after a verified transfer (AppControllerPostActions.cpp).
    void buildPostActions();
    /// Unmounts and powers off a card after its transfer; true when it went.
    bool ejectAfterTransfer(QVVolume& volume);

    SettingsStore& settings_;
    AppView& view_;
    const Services services_;
    ControllerStages<AppController> ownStages_{*this};
    TransferStages& stages_;
    FileLayer& fileLayer_;
    QVFileManager fileManager_;
    QVLaunchd launchd_;
    bool automaticForThisRun_ = false;
    std::shared_ptr<int> lifetime_ = std::make_shared<int>(0);

    VolumeList volumes_;
    TransferQueue queue_;
    DestinationReservation reservation_;
    TransferProgress progress_;
    DiskImages images_;
    PostActions postActions_;
    VolumeVerification verification_;
    VolumeUpdates updates_;

    // Volumes whose user chose "Confirm & Remove": their folders go again once the copy stops.
    std::mutex removalMutex_;
    std::set<std::shared_ptr<QVVolume>> removalRequests_;  // guarded by removalMutex_
    // Two listings of the mounted cards at once would list each card twice.
    std::mutex populateMutex_;
    bool watchingMounts_ = false;  // main thread only
};
