#pragma once
// The end of a volume's transfer: finishing, a cancelled transfer stopping where it stands,
// the user's cancel (with "Confirm & Remove"), failure counts, and the quit guard. finishVolume
// and the stops run on the thread that ends the transfer; the commands on the main thread.
// The "Confirm & Remove" requests are guarded by their own mutex.

#include <QString>
#include <QStringList>
#include <memory>
#include <mutex>
#include <set>

struct ControllerContext;
class QVVolume;

class TransferCompletion {
  public:
    explicit TransferCompletion(ControllerContext& context) : c_(context) {}

    void finishVolume(const std::shared_ptr<QVVolume>& volume);
    void cancelVolume(QVVolume& volume);
    void incrementFailureCountForVolume(QVVolume& volume);
    /// Tells the view, once per transfer, that the volume's transfer has ended for good.
    void endTransfer(const std::shared_ptr<QVVolume>& volume);
    /// Stops a cancelled volume's transfer where it stands (see the definition); once per
    /// transfer.
    void stopCancelledTransfer(const std::shared_ptr<QVVolume>& volume,
                               const QStringList& reserved);
    /// The user chose "Confirm & Remove" for the volume: its folders are not marked but go.
    bool isBeingRemoved(const std::shared_ptr<QVVolume>& volume);
    /// The Transfer command on a busy selection: asks, then cancels (and with "Confirm &
    /// Remove" deletes the reserved destination folders).
    void cancelSelectedTransfers();
    /// Shutting down: every running copy is cancelled and marked as stopped before it was
    /// verified. True when there was any.
    bool stopRunningTransfers();
    /// False when the user keeps the application open over running file operations.
    bool applicationShouldTerminate();

  private:
    void announceEnd(const std::shared_ptr<QVVolume>& volume);
    /// Deletes what a transfer wrote into a destination, never another transfer's copy in it.
    void removeTransferredFiles(const QString& destination);

    ControllerContext& c_;
    // Volumes whose user chose "Confirm & Remove": their folders go again once the copy stops.
    std::mutex removalMutex_;
    std::set<std::shared_ptr<QVVolume>> removalRequests_;  // guarded by removalMutex_
};
