#include "VolumeUpdates.h"

#include "MainThread.h"
#include "QVVolume.h"

VolumeUpdates::VolumeUpdates(Receiver receiver, std::chrono::milliseconds interval, SteadyNow now)
    : receiver_(std::move(receiver)), interval_(interval), now_(std::move(now)) {}

VolumeUpdates::~VolumeUpdates() {
    alive_.reset();
}

void VolumeUpdates::changed(const std::shared_ptr<QVVolume>& volume) {
    {
        const std::lock_guard lock(mutex_);
        pending_[volume.get()] = volume;
        if (std::exchange(scheduled_, true))
            return;
    }
    schedule();
}

// On the main thread, the delivery waits out the rest of the interval since the last one;
// the first waits for nothing.
void VolumeUpdates::schedule() {
    const std::weak_ptr<int> alive = alive_;
    MainThread::performOnMainThread(
        [this, alive] {
            if (!alive.lock())
                return;
            using std::chrono::milliseconds;
            const milliseconds wait =
                lastDelivery_
                    ? std::chrono::duration_cast<milliseconds>(*lastDelivery_ + interval_ - now_())
                    : milliseconds(0);
            QTimer::singleShot(std::max(wait, milliseconds(0)), [this, alive] {
                if (alive.lock())
                    flush();
            });
        },
        false);
}

void VolumeUpdates::flush() {
    std::map<const QVVolume*, std::weak_ptr<QVVolume>> pending;
    {
        const std::lock_guard lock(mutex_);
        pending.swap(pending_);
        scheduled_ = false;
    }
    lastDelivery_ = now_();
    Snapshots snapshots;
    for (const auto& [key, weak] : pending) {
        if (const auto volume = weak.lock())
            snapshots.push_back(volume->snapshot());
    }
    if (!snapshots.empty() && receiver_)
        receiver_(snapshots);
}
