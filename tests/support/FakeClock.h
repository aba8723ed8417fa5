#pragma once
// A clock that stands still until a test moves it, so elapsed-time rules are tested
// without sleeping.

#include <QDateTime>
#include <chrono>
#include <mutex>

#include "Clock.h"

class FakeClock : public Clock {
  public:
    /// Starts at a fixed UTC instant unless given one.
    explicit FakeClock(QDateTime start = QDateTime(QDate(2024, 3, 1), QTime(9, 0), Qt::UTC));

    QDateTime now() const override;

    /// Moves the clock forward (or back, with a negative step).
    void advance(std::chrono::milliseconds step);

  private:
    mutable std::mutex mutex_;
    QDateTime now_;  // guarded by mutex_
};
