#include "QVTimeEstimate.h"

#include <QDataStream>
#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>

#include "QVFormat.h"
#include "QVLog.h"

namespace {

constexpr double kHoldOffSeconds = 4.0;
constexpr double kCacheSeconds = 0.8;
const QString kShowMessageKey = QStringLiteral("showCalculatingTimeMessage");

double secondsBetween(const QDateTime& from, const QDateTime& to) {
    return static_cast<double>(from.msecsTo(to)) / 1000.0;
}

// Rounds up; an estimate beyond what 64 bits hold saturates instead of overflowing.
std::uint64_t wholeSecondsUp(double seconds) {
    const double up = std::ceil(seconds);
    constexpr double kLimit = 18446744073709551616.0;  // 2^64
    if (up >= kLimit) {
        return std::numeric_limits<std::uint64_t>::max();
    }
    return static_cast<std::uint64_t>(up);
}

// Hours run past 24 rather than wrap: a day-long estimate shown as an hour would tell the
// crew a card is nearly done when it is not.
QString formatRemaining(std::uint64_t s) {
    const std::uint64_t seconds = s % 60;
    const std::uint64_t minutes = (s / 60) % 60;
    const std::uint64_t hours = s / 3600;
    return QVFormat::format(u"%0.2li:%0.2li:%0.2li", static_cast<qint64>(hours),
                            static_cast<qint64>(minutes), static_cast<qint64>(seconds));
}

template <typename T>
void writeOptional(QDataStream& out, const std::optional<T>& value) {
    out << value.has_value();
    if (value) {
        out << *value;
    }
}

template <typename T>
bool readOptional(QDataStream& in, std::optional<T>& value) {
    bool present = false;
    in >> present;
    if (!present) {
        value.reset();
        return in.status() == QDataStream::Ok;
    }
    T read{};
    in >> read;
    value = std::move(read);
    return in.status() == QDataStream::Ok;
}

}  // namespace

QVTimeEstimate::QVTimeEstimate(std::shared_ptr<const Clock> clock) : clock_(std::move(clock)) {}

QVTimeEstimate QVTimeEstimate::timeEstimateWithTotal(double total,
                                                     std::shared_ptr<const Clock> clock) {
    QVTimeEstimate estimate(std::move(clock));
    estimate.fields_.totalValue = total;
    return estimate;
}

QVTimeEstimate::QVTimeEstimate(const QVTimeEstimate& other) {
    const std::lock_guard lock(other.mutex_);
    clock_ = other.clock_;
    fields_ = other.fields_;
}

QVTimeEstimate& QVTimeEstimate::operator=(const QVTimeEstimate& other) {
    if (this == &other) {
        return *this;
    }
    std::shared_ptr<const Clock> clock;
    Fields fields;
    {
        const std::lock_guard lock(other.mutex_);
        clock = other.clock_;
        fields = other.fields_;
    }
    const std::lock_guard lock(mutex_);
    clock_ = std::move(clock);
    fields_ = std::move(fields);
    return *this;
}

void QVTimeEstimate::start() {
    startAt(0.0);
}

void QVTimeEstimate::startWithValue(double value) {
    startAt(value);
}

void QVTimeEstimate::startAt(double value) {
    const std::lock_guard lock(mutex_);
    fields_.startValue = value;
    fields_.startDate = clock_->now();
    if (!fields_.currentValue) {
        fields_.currentValue = 0.0;
    }
    fields_.cachedValue.reset();
    fields_.lastQueryDate.reset();
}

void QVTimeEstimate::reset() {
    const std::lock_guard lock(mutex_);
    fields_.startValue = 0.0;
    fields_.currentValue = 0.0;
    fields_.cachedValue.reset();
    fields_.lastQueryDate.reset();
}

void QVTimeEstimate::incrementCurrentValue(double amount) {
    const std::lock_guard lock(mutex_);
    fields_.currentValue = fields_.currentValue.value_or(0.0) + amount;
}

double QVTimeEstimate::secondsRemaining() const {
    const std::lock_guard lock(mutex_);
    return secondsRemainingAt(clock_->now());
}

double QVTimeEstimate::secondsRemainingAt(const QDateTime& now) const {
    const Fields& f = fields_;
    if (!f.startDate || !f.currentValue || !f.totalValue || !f.startValue) {
        return -1.0;
    }
    const double elapsed = secondsBetween(*f.startDate, now);
    if (elapsed < kHoldOffSeconds) {
        return -1.0;
    }
    // The done share is divided by the whole total, not by what was left at the start, so
    // a resumed run over-estimates. That is deliberate: the estimate errs on the long side.
    const double percent = (*f.currentValue - *f.startValue) / *f.totalValue * 100.0;
    // A zero total gives no usable percent (infinite, or not a number at all).
    if (!(percent > 0.0) || !std::isfinite(percent)) {
        return -1.0;
    }
    return (100.0 - percent) * (elapsed / percent);
}

QString QVTimeEstimate::timeRemaining() {
    const std::lock_guard lock(mutex_);
    const QDateTime now = clock_->now();
    Fields& f = fields_;
    if (f.cachedValue && f.lastQueryDate && secondsBetween(*f.lastQueryDate, now) < kCacheSeconds) {
        return *f.cachedValue;
    }
    // Without a start date the run has not begun: it reads as just started.
    const double elapsed = f.startDate ? secondsBetween(*f.startDate, now) : 0.0;
    if (elapsed < kHoldOffSeconds) {
        return f.showCalculatingTimeMessage ? QStringLiteral("Calculating time") : QString();
    }
    const double remaining = secondsRemainingAt(now);
    if (!(remaining >= 0.0)) {
        return QStringLiteral("Unknown");
    }
    f.cachedValue = formatRemaining(wholeSecondsUp(remaining));
    f.lastQueryDate = now;
    return *f.cachedValue;
}

QVTimeEstimate::Fields QVTimeEstimate::snapshot() const {
    const std::lock_guard lock(mutex_);
    return fields_;
}

std::optional<QDateTime> QVTimeEstimate::startDate() const {
    const std::lock_guard lock(mutex_);
    return fields_.startDate;
}

void QVTimeEstimate::setStartDate(const std::optional<QDateTime>& value) {
    const std::lock_guard lock(mutex_);
    fields_.startDate = value;
}

std::optional<double> QVTimeEstimate::startValue() const {
    const std::lock_guard lock(mutex_);
    return fields_.startValue;
}

void QVTimeEstimate::setStartValue(std::optional<double> value) {
    const std::lock_guard lock(mutex_);
    fields_.startValue = value;
}

std::optional<double> QVTimeEstimate::totalValue() const {
    const std::lock_guard lock(mutex_);
    return fields_.totalValue;
}

void QVTimeEstimate::setTotalValue(std::optional<double> value) {
    const std::lock_guard lock(mutex_);
    fields_.totalValue = value;
}

std::optional<double> QVTimeEstimate::currentValue() const {
    const std::lock_guard lock(mutex_);
    return fields_.currentValue;
}

void QVTimeEstimate::setCurrentValue(std::optional<double> value) {
    const std::lock_guard lock(mutex_);
    fields_.currentValue = value;
}

std::optional<QString> QVTimeEstimate::cachedValue() const {
    const std::lock_guard lock(mutex_);
    return fields_.cachedValue;
}

void QVTimeEstimate::setCachedValue(const std::optional<QString>& value) {
    const std::lock_guard lock(mutex_);
    fields_.cachedValue = value;
}

std::optional<QDateTime> QVTimeEstimate::lastQueryDate() const {
    const std::lock_guard lock(mutex_);
    return fields_.lastQueryDate;
}

void QVTimeEstimate::setLastQueryDate(const std::optional<QDateTime>& value) {
    const std::lock_guard lock(mutex_);
    fields_.lastQueryDate = value;
}

bool QVTimeEstimate::showCalculatingTimeMessage() const {
    const std::lock_guard lock(mutex_);
    return fields_.showCalculatingTimeMessage;
}

void QVTimeEstimate::setShowCalculatingTimeMessage(bool value) {
    const std::lock_guard lock(mutex_);
    fields_.showCalculatingTimeMessage = value;
}

void QVTimeEstimate::encode(QDataStream& out) const {
    const Fields f = snapshot();
    writeOptional(out, f.startDate);
    writeOptional(out, f.startValue);
    writeOptional(out, f.totalValue);
    writeOptional(out, f.currentValue);
    writeOptional(out, f.cachedValue);
    writeOptional(out, f.lastQueryDate);
    out << kShowMessageKey << f.showCalculatingTimeMessage;
}

bool QVTimeEstimate::decode(QDataStream& in) {
    Fields f;
    QString key;
    const bool read = readOptional(in, f.startDate) && readOptional(in, f.startValue) &&
                      readOptional(in, f.totalValue) && readOptional(in, f.currentValue) &&
                      readOptional(in, f.cachedValue) && readOptional(in, f.lastQueryDate) &&
                      (in >> key).status() == QDataStream::Ok && key == kShowMessageKey &&
                      (in >> f.showCalculatingTimeMessage).status() == QDataStream::Ok;
    if (!read) {
        QVLog::appendLog(u"Could not read an archived time estimate (stream status %li, key %@)",
                         static_cast<qint64>(in.status()), key);
        if (in.status() == QDataStream::Ok) {
            in.setStatus(QDataStream::ReadCorruptData);
        }
        return false;
    }
    const std::lock_guard lock(mutex_);
    fields_ = std::move(f);
    return true;
}

bool QVTimeEstimate::operator==(const QVTimeEstimate& other) const {
    if (this == &other) {
        return true;
    }
    return snapshot() == other.snapshot();
}
