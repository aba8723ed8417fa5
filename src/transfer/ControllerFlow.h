#pragma once
// How the parts of the controller reach one another: each part calls the others through this
// interface (ControllerParts implements it by handing each call to the part that owns it), so
// no part depends on another's header. Each operation runs where the part that owns it says.

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <memory>
#include <optional>

#include "AppView.h"

class CopyDelegate;
class QVVolume;
struct TransferSettings;

class ControllerFlow {
  public:
    virtual ~ControllerFlow() = default;

    virtual void processVolumeWithSettings(const TransferSettings& settings) = 0;
    virtual void addVolumeToQueue(const std::shared_ptr<QVVolume>& volume) = 0;
    virtual void processNextQueueItem() = 0;
    virtual void decrementThreadCount() = 0;
    virtual void releaseSlot(QVVolume& volume) = 0;
    virtual void checkDoneFlagForVolume(const std::shared_ptr<QVVolume>& volume) = 0;
    virtual void recallCardMetadata(QVVolume& volume) = 0;
    virtual void claimCardMetadata(const std::shared_ptr<QVVolume>& volume) = 0;
    virtual std::uint64_t transferSize(QVVolume& volume) = 0;
    virtual void writeChecksumFileForVolume(QVVolume& volume) = 0;
    virtual void markEndedEarly(const std::shared_ptr<QVVolume>& volume, const QString& cardPath,
                                const QDateTime& started) = 0;
    virtual std::shared_ptr<CopyDelegate> copierFor(const std::shared_ptr<QVVolume>& volume) = 0;
    virtual void advanceProgress(const std::shared_ptr<QVVolume>& volume, double bytes) = 0;
    virtual void showOverallProgress() = 0;
    virtual void finishVolume(const std::shared_ptr<QVVolume>& volume) = 0;
    virtual void cancelVolume(QVVolume& volume) = 0;
    virtual void incrementFailureCountForVolume(QVVolume& volume) = 0;
    virtual void endTransfer(const std::shared_ptr<QVVolume>& volume) = 0;
    virtual void stopCancelledTransfer(const std::shared_ptr<QVVolume>& volume,
                                       const QStringList& reserved) = 0;
    virtual bool isBeingRemoved(const std::shared_ptr<QVVolume>& volume) = 0;
    virtual void cancelSelectedTransfers() = 0;
    virtual bool ejectVolume(QVVolume& volume) = 0;
    virtual std::optional<QString> eraseRefusal(const QVVolume& volume) = 0;
    virtual void performPostActions(const std::shared_ptr<QVVolume>& volume) = 0;
    virtual bool cardsweepEnabled() = 0;
    virtual void startListener() = 0;
    virtual void stopListener() = 0;
    virtual void startSetupJob() = 0;
    virtual void stopSetupJob() = 0;
    virtual void reloadVolumeList() = 0;
    virtual void updateToolbarForTableSelection() = 0;
    virtual void refreshTotalRemainingSpace() = 0;
    virtual ToolbarState toolbarForSelection() = 0;
    virtual bool selectionIsBusy() = 0;
    virtual ToolbarState transferItem(bool asCancel) = 0;
};
