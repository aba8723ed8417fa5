#include "VolumeUpdates.h"

#include "MainThread.h"
#include "QVVolume.h"

VolumeUpdates::VolumeUpdates(Receiver receiver, std::chrono::milliseconds interval)
    : receiver_(std::move(receiver)), interval_(interval) {}

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

// On the main thread, the delivery waits out the rest of the interval since the last one.
void VolumeUpdates::schedule() {
    const std::weak_ptr<int> alive = alive_;
    MainThread::performOnMainThread(
        [this, alive] {
            if (!alive.lock())
                return;
            const auto due = lastDelivery_ + interval_;
            const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(
                due - std::chrono::steady_clock::now());
            QTimer::singleShot(std::max(wait, std::chrono::milliseconds(0)), [this, alive] {
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
    lastDelivery_ = std::chrono::steady_clock::now();
    Snapshots snapshots;
    for (const auto& [key, weak] : pending) {
        if (const auto volume = weak.lock())
            snapshots.push_back(volume->snapshot());
    }
    if (!snapshots.empty() && receiver_)
        receiver_(snapshots);
}
