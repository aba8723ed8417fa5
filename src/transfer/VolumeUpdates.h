#pragma once
// Tells the view which volumes changed, as snapshots, on the main thread: a volume that
// changes many times between two deliveries is delivered once, and deliveries are at least an
// interval apart, so a card copying at full speed cannot flood the event loop. The first
// delivery goes at once, however short a time the machine has been up.
// changed() is safe from any thread; delivery is always on the main thread.

#include <QTimer>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "VolumeSnapshot.h"

class QVVolume;

class VolumeUpdates {
  public:
    using Snapshots = std::vector<std::shared_ptr<const VolumeSnapshot>>;
    using Receiver = std::function<void(const Snapshots& snapshots)>;
    using SteadyNow = std::function<std::chrono::steady_clock::time_point()>;

    /// now is read on the main thread only.
    VolumeUpdates(Receiver receiver, std::chrono::milliseconds interval,
                  SteadyNow now = &std::chrono::steady_clock::now);
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
    const SteadyNow now_;
    std::shared_ptr<int> alive_ = std::make_shared<int>(0);
    std::mutex mutex_;
    std::map<const QVVolume*, std::weak_ptr<QVVolume>> pending_;  // guarded by mutex_
    bool scheduled_ = false;                                      // guarded by mutex_
    // None before the first: the clock's zero is the machine's boot, not a delivery.
    std::optional<std::chrono::steady_clock::time_point> lastDelivery_;  // main thread only
};
