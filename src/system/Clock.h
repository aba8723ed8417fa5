#pragma once
// Where the time of day comes from, so anything that measures elapsed time can be run
// against a clock a test moves by hand.

#include <QDateTime>
#include <memory>

class Clock {
  public:
    virtual ~Clock() = default;

    /// The current time. Safe to call from any thread.
    virtual QDateTime now() const = 0;

    /// The wall clock, shared and immutable.
    static std::shared_ptr<const Clock> system();
};
