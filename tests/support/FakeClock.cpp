#include "FakeClock.h"

#include <utility>

FakeClock::FakeClock(QDateTime start) : now_(std::move(start)) {}

QDateTime FakeClock::now() const {
    const std::lock_guard lock(mutex_);
    return now_;
}

void FakeClock::advance(std::chrono::milliseconds step) {
    const std::lock_guard lock(mutex_);
    now_ = now_.addMSecs(step.count());
}
