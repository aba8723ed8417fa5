#pragma once
// Tells the view which volumes changed, as snapshots, on the main thread: a volume that
// changes many times between two deliveries is delivered once, and deliveries are at least an
// interval apart, so a card copying at full speed cannot flood the event loop.
// changed() is safe from any thread; delivery is always on the main thread.

#include <QTimer>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "VolumeSnapshot.h"

class QVVolume;

class VolumeUpdates {
  public:
    using Snapshots = std::vector<std::shared_ptr<const VolumeSnapshot>>;
    using Receiver = std::function<void(const Snapshots& snapshots)>;

    VolumeUpdates(Receiver receiver, std::chrono::milliseconds interval);
    ~VolumeUpdates();
    VolumeUpdates(const VolumeUpdates&) = delete;
    VolumeUpdates& operator=(const VolumeUpdates&) = delete;

    void changed(const std::shared_ptr<QVVolume>& volume);
    /// Delivers what is pending now (main thread only), e.g. before a transfer's end is told.
    void flush();

  private:
    void schedule();

    const Receiver receiver_;
    const std::chrono::milliseconds interval_;
    std::shared_ptr<int> alive_ = std::make_shared<int>(0);
    std::mutex mutex_;
    std::map<const QVVolume*, std::weak_ptr<QVVolume>> pending_;  // guarded by mutex_
    bool scheduled_ = false;                                      // guarded by mutex_
    std::chrono::steady_clock::time_point lastDelivery_;          // main thread only
};
