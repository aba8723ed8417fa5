#pragma once
// Admission of volumes to transfer: destination choice, the waiting list and the slots (held
// by TransferQueue), the end of a worker's turn, the done-marker check of a freshly listed
// card, and the metadata a card keeps across mounts. Safe from any thread: the queue keeps
// its own lock, and what the view is told goes through the main thread.

#include <QString>
#include <QStringList>
#include <memory>

struct ControllerContext;
class QVVolume;

class TransferAdmission {
  public:
    explicit TransferAdmission(ControllerContext& context) : c_(context) {}

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

  private:
    QStringList chooseDestinations(const QVVolume& volume);
    void startWorker(const std::shared_ptr<QVVolume>& volume, const QStringList& destinations);

    ControllerContext& c_;
};
