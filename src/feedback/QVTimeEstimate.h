#pragma once
// How long a running transfer still needs, from its progress since it started, and the
// "hh:mm:ss" text the volume list shows for it.
//
// Thread-safety: every member may be called from any thread. Progress callbacks set the
// current value on the copy thread while the list reads timeRemaining() on the main thread;
// one mutex guards all fields.

#include <QDateTime>
#include <QString>
#include <memory>
#include <mutex>
#include <optional>

#include "Clock.h"

class QDataStream;

class QVTimeEstimate {
  public:
    /// A fresh estimate over clock (never null): the "Calculating time" message on, everything
    /// else unset.
    explicit QVTimeEstimate(std::shared_ptr<const Clock> clock);
    /// A fresh estimate whose total is already known.
    static QVTimeEstimate timeEstimateWithTotal(double total, std::shared_ptr<const Clock> clock);

    /// Copies every field (and the clock), read under the source's lock.
    QVTimeEstimate(const QVTimeEstimate& other);
    QVTimeEstimate& operator=(const QVTimeEstimate& other);

    /// Starts a fresh run: start value 0, start date now, current value 0 unless already
    /// set, cached text dropped.
    void start();
    /// As start(), for a run that resumes at `value`.
    void startWithValue(double value);
    /// Zeros the start and current values and drops the cached text; the start date and
    /// total stay.
    void reset();
    /// Adds `amount` to the current value (an unset value counts as 0).
    void incrementCurrentValue(double amount);

    /// Seconds still needed, or -1 when no estimate can be made yet (a field unset, under
    /// 4 seconds since the start, or no progress).
    double secondsRemaining() const;
    /// The text for display: "Calculating time" (or "") for the first 4 seconds, "Unknown"
    /// without an estimate, else "hh:mm:ss" with every hour counted, so it never reads less
    /// than is left (25 hours read 25:00:00). The text is kept for 0.8 seconds because the
    /// list asks on every repaint.
    QString timeRemaining();

    std::optional<QDateTime> startDate() const;
    void setStartDate(const std::optional<QDateTime>& value);
    std::optional<double> startValue() const;
    void setStartValue(std::optional<double> value);
    std::optional<double> totalValue() const;
    void setTotalValue(std::optional<double> value);
    std::optional<double> currentValue() const;
    void setCurrentValue(std::optional<double> value);
    std::optional<QString> cachedValue() const;
    void setCachedValue(const std::optional<QString>& value);
    std::optional<QDateTime> lastQueryDate() const;
    void setLastQueryDate(const std::optional<QDateTime>& value);
    bool showCalculatingTimeMessage() const;
    void setShowCalculatingTimeMessage(bool value);

    /// Writes the archived form: the six optional fields in declaration order, each with a
    /// presence flag, then the "showCalculatingTimeMessage" key and its boolean.
    void encode(QDataStream& out) const;
    /// Reads the archived form into this estimate (the clock stays). On a short or
    /// malformed stream nothing changes, a line is logged and false is returned.
    bool decode(QDataStream& in);

    /// True when every field matches; the clocks are not compared.
    bool operator==(const QVTimeEstimate& other) const;

  private:
    struct Fields {
        std::optional<QDateTime> startDate;
        std::optional<double> startValue;
        std::optional<double> totalValue;
        std::optional<double> currentValue;
        std::optional<QString> cachedValue;
        std::optional<QDateTime> lastQueryDate;
        bool showCalculatingTimeMessage = true;

        bool operator==(const Fields&) const = default;
    };

    Fields snapshot() const;
    // REQUIRES: mutex_ is held.
    double secondsRemainingAt(const QDateTime& now) const;
    void startAt(double value);

    std::shared_ptr<const Clock> clock_;  // guarded by mutex_
    mutable std::mutex mutex_;
    Fields fields_;  // guarded by mutex_
};
