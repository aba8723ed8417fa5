#pragma once
// Everything the controller is made of, in one place: the services, the state objects that
// keep their own locks (volume list, queue, reservation, progress, images, verification pool,
// view updates), the context the parts share, and the parts; as ControllerFlow it hands each
// call one part makes of another to the part that owns it. Made
// and destroyed on the main thread; see each part for where it runs.

#include <memory>

#include "AppView.h"
#include "CardCommands.h"
#include "ControllerContext.h"
#include "ControllerFlow.h"
#include "ControllerStages.h"
#include "DestinationReservation.h"
#include "DiskImages.h"
#include "ListenerJobs.h"
#include "PostActionSteps.h"
#include "ProgressPublisher.h"
#include "QVFileManager.h"
#include "QVVolume.h"
#include "Services.h"
#include "TransferAdmission.h"
#include "TransferCompletion.h"
#include "TransferOptions.h"
#include "TransferProgress.h"
#include "TransferQueue.h"
#include "TransferSettings.h"
#include "TransferStages.h"
#include "VerificationStage.h"
#include "VolumeCopyStage.h"
#include "VolumeDiscovery.h"
#include "VolumeList.h"
#include "VolumePresentation.h"
#include "VolumeProcessing.h"
#include "VolumeUpdates.h"
#include "VolumeVerification.h"

class AppView;
class SettingsStore;

struct ControllerParts : ControllerFlow {
    /// With no stages given, the parts' own copy and verification take over.
    ControllerParts(SettingsStore& settings, AppView& view, const Services& services,
                    TransferStages* stages);
    ~ControllerParts();
    ControllerParts(const ControllerParts&) = delete;
    ControllerParts& operator=(const ControllerParts&) = delete;

    const Services services;
    QVFileManager fileManager;
    VolumeList volumes;
    TransferQueue queue;
    DestinationReservation reservation;
    TransferProgress progress;
    DiskImages images;
    VolumeVerification verification;
    VolumeUpdates updates;
    std::shared_ptr<int> lifetime = std::make_shared<int>(0);

    ControllerContext context;
    TransferAdmission admission{context};
    VolumeProcessing processing{context};
    VolumeCopyStage copy{context};
    VerificationStage verifier{context};
    ControllerStages ownStages{copy, verifier};
    ProgressPublisher progressView{context};
    TransferCompletion completion{context};
    CardCommands cards{context};
    PostActionSteps postActions{context};
    ListenerJobs jobs{context};
    VolumeDiscovery discovery{context};
    VolumePresentation presentation{context};

    // ControllerFlow: each call handed to the part that owns it.
    void processVolumeWithSettings(const TransferSettings& settings) override;
    void addVolumeToQueue(const std::shared_ptr<QVVolume>& volume) override;
    void processNextQueueItem() override;
    void decrementThreadCount() override;
    void releaseSlot(QVVolume& volume) override;
    void checkDoneFlagForVolume(const std::shared_ptr<QVVolume>& volume) override;
    void recallCardMetadata(QVVolume& volume) override;
    void claimCardMetadata(const std::shared_ptr<QVVolume>& volume) override;
    std::uint64_t transferSize(QVVolume& volume) override;
    void writeChecksumFileForVolume(QVVolume& volume) override;
    void markEndedEarly(const std::shared_ptr<QVVolume>& volume, const QString& cardPath,
                        const QDateTime& started) override;
    std::shared_ptr<CopyDelegate> copierFor(const std::shared_ptr<QVVolume>& volume) override;
    void advanceProgress(const std::shared_ptr<QVVolume>& volume, double bytes) override;
    void showOverallProgress() override;
    void finishVolume(const std::shared_ptr<QVVolume>& volume) override;
    void cancelVolume(QVVolume& volume) override;
    void incrementFailureCountForVolume(QVVolume& volume) override;
    void endTransfer(const std::shared_ptr<QVVolume>& volume) override;
    void stopCancelledTransfer(const std::shared_ptr<QVVolume>& volume,
                               const QStringList& reserved) override;
    bool isBeingRemoved(const std::shared_ptr<QVVolume>& volume) override;
    void cancelSelectedTransfers() override;
    bool ejectVolume(QVVolume& volume) override;
    std::optional<QString> eraseRefusal(const QVVolume& volume) override;
    void performPostActions(const std::shared_ptr<QVVolume>& volume) override;
    bool cardsweepEnabled() override;
    void startListener() override;
    void stopListener() override;
    void startSetupJob() override;
    void stopSetupJob() override;
    void reloadVolumeList() override;
    void updateToolbarForTableSelection() override;
    void refreshTotalRemainingSpace() override;
    ToolbarState toolbarForSelection() override;
    bool selectionIsBusy() override;
    ToolbarState transferItem(bool asCancel) override;
};
