#pragma once
// Admission of volumes to transfer: how many transfers hold a slot, and the volumes waiting
// for one, in order. Safe from any thread; one mutex guards both.

#include <QtGlobal>
#include <memory>
#include <mutex>
#include <vector>

class QVVolume;
enum class VolumeStatus : qint64;

class TransferQueue {
  public:
    using Volumes = std::vector<std::shared_ptr<QVVolume>>;

    /// A volume coming back while still busy gives its slot back first (status as it was).
    void giveBackSlotOf(VolumeStatus status);
    /// Takes a slot for the volume when one of limit is free (true: start it now), else
    /// queues it.
    bool admit(const std::shared_ptr<QVVolume>& volume, qint64 limit);
    /// The head of the waiting list with a slot taken for it; null when nobody waits.
    std::shared_ptr<QVVolume> takeNext();
    void increment();
    void decrement();
    qint64 count() const;
    Volumes waiting() const;
    /// Takes the volume off the waiting list (cancelled before its turn); true when it was on.
    bool withdraw(const std::shared_ptr<QVVolume>& volume);
    /// Empties the waiting list and returns what it held.
    Volumes dropWaiting();

  private:
    mutable std::mutex mutex_;
    Volumes waiting_;   // guarded by mutex_
    qint64 count_ = 0;  // guarded by mutex_
};
