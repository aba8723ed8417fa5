#pragma once
// The transfer logic of the application: the volume list, the queue that admits volumes to
// transfer, the workers that process them, and destination reservation. One class; its
// operations are split by concern over AppController*.cpp.
//
// Thread-safety: queueMutex_ guards the waiting list and the thread count and is never held
// while calling out to the view; lock_ (recursive) serialises reservations and guards the
// reserved-path queue; dataMutex_ guards the volume and destination lists. The view is only
// ever called on the main thread.

#include <QString>
#include <QStringList>
#include <memory>
#include <mutex>
#include <vector>

#include "AppView.h"
#include "Clock.h"
#include "DestinationEntry.h"
#include "TransferSettings.h"

class Notifier;
class QVVolume;
class SettingsStore;
class TransferStages;

class AppController {
  public:
    AppController(SettingsStore& settings, AppView& view, Notifier& notifier,
                  TransferStages& stages, std::shared_ptr<const Clock> clock = Clock::system());
    AppController(const AppController&) = delete;
    AppController& operator=(const AppController&) = delete;

    // ---- State
    std::vector<std::shared_ptr<QVVolume>> dataArray() const;
    void setDataArray(const std::vector<std::shared_ptr<QVVolume>>& volumes);
    std::vector<std::shared_ptr<QVVolume>> waitingObjects() const;
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

    // ---- Presentation (AppControllerPresentation.cpp); main thread only
    void updateToolbarForTableSelection();
    void refreshTotalRemainingSpace();
    void reloadVolumeList();

  private:
    QStringList chooseDestinations(const QVVolume& volume);
    void startWorker(const std::shared_ptr<QVVolume>& volume, const QStringList& destinations);
    void markFailed(QVVolume& volume, const QString& reason);
    void postTransferFailed(const QVVolume& volume);
    bool inImageMode() const;

    SettingsStore& settings_;
    AppView& view_;
    Notifier& notifier_;
    TransferStages& stages_;
    const std::shared_ptr<const Clock> clock_;

    mutable std::mutex queueMutex_;
    std::vector<std::shared_ptr<QVVolume>> waitingObjects_;  // guarded by queueMutex_
    qint64 threadCount_ = 0;                                 // guarded by queueMutex_

    mutable std::recursive_mutex lock_;
    QStringList reservedFileQueue_;  // guarded by lock_

    mutable std::mutex dataMutex_;
    std::vector<std::shared_ptr<QVVolume>> dataArray_;  // guarded by dataMutex_
    std::vector<DestinationEntry> destinationList_;     // guarded by dataMutex_
};
