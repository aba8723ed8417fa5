// The time-remaining estimate: its hold-off, the cached "hh:mm:ss" text, resuming and
// resetting, copies, and the archived form.

#include <gtest/gtest.h>

#include <QByteArray>
#include <QDataStream>
#include <QIODevice>
#include <chrono>
#include <memory>

#include "FakeClock.h"
#include "QVTimeEstimate.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

const QString kCalculating = QStringLiteral("Calculating time");
const QString kUnknown = QStringLiteral("Unknown");

class QVTimeEstimateTest : public testing::Test {
  protected:
    // An estimate started now with `done` of `total` already done, read after `elapsed`.
    QVTimeEstimate running(double total, double done, milliseconds elapsed) {
        QVTimeEstimate estimate = QVTimeEstimate::timeEstimateWithTotal(total, clock);
        estimate.start();
        estimate.setCurrentValue(done);
        clock->advance(elapsed);
        return estimate;
    }
    QByteArray encoded(const QVTimeEstimate& estimate) {
        QByteArray bytes;
        QDataStream out(&bytes, QIODevice::WriteOnly);
        estimate.encode(out);
        return bytes;
    }
    const std::shared_ptr<FakeClock> clock = std::make_shared<FakeClock>();
};

}  // namespace

TEST_F(QVTimeEstimateTest, HoldsOffAndAnswersUnknownWithoutCaching) {
    QVTimeEstimate estimate = running(1000, 900, milliseconds(3900));
    EXPECT_EQ(estimate.secondsRemaining(), -1.0);
    EXPECT_EQ(estimate.timeRemaining(), kCalculating);
    estimate.setShowCalculatingTimeMessage(false);
    EXPECT_EQ(estimate.timeRemaining(), QString());
    // 0.1 s later, well inside the cache time: the hold-off text was not kept.
    clock->advance(milliseconds(100));
    EXPECT_EQ(estimate.timeRemaining(), QStringLiteral("00:00:01"));  // 10 * 4.0 / 90

    QVTimeEstimate stalled = running(1000, 0, seconds(4));
    stalled.setCurrentValue(std::nullopt);
    EXPECT_EQ(stalled.timeRemaining(), kUnknown);
    stalled.setCurrentValue(250);
    EXPECT_EQ(stalled.timeRemaining(), QStringLiteral("00:00:12"));

    // No total to measure against: no estimate, rather than a number made of infinities.
    EXPECT_EQ(running(0, 10, seconds(5)).timeRemaining(), kUnknown);
}

TEST_F(QVTimeEstimateTest, EstimatesAndFormatsHoursWithinTheDay) {
    EXPECT_DOUBLE_EQ(running(1000, 250, seconds(10)).secondsRemaining(), 30.0);
    // Half done: the time remaining equals the time elapsed; hours wrap at a day.
    EXPECT_EQ(running(1000, 500, milliseconds(9'000'200)).timeRemaining(),
              QStringLiteral("02:30:01"));
    EXPECT_EQ(running(1000, 500, seconds(90'000)).timeRemaining(), QStringLiteral("01:00:00"));
    EXPECT_EQ(running(1000, 500, milliseconds(86'399'500)).timeRemaining(),
              QStringLiteral("00:00:00"));
}

TEST_F(QVTimeEstimateTest, KeepsTheTextForEightTenthsOfASecond) {
    QVTimeEstimate estimate = running(1000, 250, seconds(10));
    const QDateTime stored = clock->now();
    EXPECT_EQ(estimate.timeRemaining(), QStringLiteral("00:00:30"));
    QVTimeEstimate copy(estimate);  // its own fields, the same clock
    clock->advance(milliseconds(500));
    estimate.setCurrentValue(500);
    EXPECT_EQ(estimate.timeRemaining(), QStringLiteral("00:00:30"));
    clock->advance(milliseconds(299));
    EXPECT_EQ(estimate.timeRemaining(), QStringLiteral("00:00:30"));
    EXPECT_EQ(estimate.lastQueryDate(), stored);  // a cached answer does not extend itself

    clock->advance(milliseconds(1));  // 10.8 s at 50 %
    EXPECT_EQ(estimate.timeRemaining(), QStringLiteral("00:00:11"));
    EXPECT_EQ(estimate.lastQueryDate(), clock->now());
    EXPECT_EQ(copy.timeRemaining(), QStringLiteral("00:00:33"));  // 10.8 s at 25 %

    estimate.start();  // a new run drops the text at once
    EXPECT_EQ(estimate.timeRemaining(), kCalculating);
}

TEST_F(QVTimeEstimateTest, StartResumeResetAndIncrement) {
    QVTimeEstimate fresh(clock);
    EXPECT_FALSE(fresh.currentValue().has_value());
    fresh.incrementCurrentValue(40);
    fresh.incrementCurrentValue(2.5);
    EXPECT_EQ(fresh.currentValue(), 42.5);

    // Resumed half-way: the 25 % done since is divided by the whole total, so 30 s are
    // shown where 10 s remain.
    QVTimeEstimate resumed = QVTimeEstimate::timeEstimateWithTotal(1000, clock);
    resumed.setCurrentValue(500);
    resumed.startWithValue(500);
    EXPECT_EQ(resumed.currentValue(), 500.0);  // an existing value is kept
    resumed.incrementCurrentValue(250);
    clock->advance(seconds(10));
    const QDateTime started = *resumed.startDate();
    EXPECT_EQ(resumed.timeRemaining(), QStringLiteral("00:00:30"));

    // Reset drops the progress and the cached text, keeping the start date and total.
    resumed.reset();
    EXPECT_EQ(resumed.currentValue(), 0.0);
    EXPECT_FALSE(resumed.lastQueryDate().has_value());
    EXPECT_EQ(resumed.startDate(), started);
    EXPECT_EQ(resumed.timeRemaining(), kUnknown);
    resumed.start();
    EXPECT_EQ(resumed.startDate(), clock->now());
}

TEST_F(QVTimeEstimateTest, ArchivedFormRoundTripsAndRejectsShortStreams) {
    QVTimeEstimate full = QVTimeEstimate::timeEstimateWithTotal(4096.5, clock);
    full.startWithValue(12.25);
    full.setCurrentValue(1024.75);
    clock->advance(seconds(20));
    full.timeRemaining();  // fills the cached text and query date
    full.setShowCalculatingTimeMessage(false);
    QVTimeEstimate sparse(clock);  // only the total and the message flag
    sparse.setTotalValue(7);
    for (const QVTimeEstimate* original : {&full, &sparse}) {
        const QByteArray bytes = encoded(*original);
        QDataStream in(bytes);
        QVTimeEstimate decoded(clock);
        decoded.setStartValue(99);
        ASSERT_TRUE(decoded.decode(in));
        EXPECT_TRUE(decoded == *original);

        // Cut anywhere, the stream is refused and the target keeps what it had.
        for (qsizetype length = 0; length < bytes.size(); ++length) {
            QDataStream cut(bytes.left(length));
            QVTimeEstimate target(clock);
            target.setCurrentValue(5);
            EXPECT_FALSE(target.decode(cut)) << "length " << length;
            EXPECT_TRUE(target.currentValue() == 5.0 && !target.totalValue()) << length;
        }
    }
}
