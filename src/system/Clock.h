#pragma once
// Where the time of day comes from, so anything that measures elapsed time or stamps a record
// can be run against a clock a test moves by hand. The programs' setup hands in the wall
// clock (SystemClock).

#include <QDateTime>
#include <memory>

class Clock {
  public:
    virtual ~Clock() = default;

    /// The current time. Safe to call from any thread.
    virtual QDateTime now() const = 0;
};
