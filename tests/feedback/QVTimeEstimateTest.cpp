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

// An estimate half done after `elapsed`, so the time remaining equals the time elapsed.
QString textHalfDoneAfter(milliseconds elapsed) {
    const auto clock = std::make_shared<FakeClock>();
    QVTimeEstimate estimate = QVTimeEstimate::timeEstimateWithTotal(1000, clock);
    estimate.start();
    estimate.setCurrentValue(500);
    clock->advance(elapsed);
    return estimate.timeRemaining();
}

}  // namespace

TEST(QVTimeEstimateTest, HoldsOffAndAnswersUnknownWithoutCaching) {
    const auto clock = std::make_shared<FakeClock>();
    QVTimeEstimate estimate = QVTimeEstimate::timeEstimateWithTotal(1000, clock);
    estimate.start();
    estimate.setCurrentValue(900);
    clock->advance(milliseconds(3900));
    EXPECT_EQ(estimate.secondsRemaining(), -1.0);
    EXPECT_EQ(estimate.timeRemaining(), kCalculating);
    estimate.setShowCalculatingTimeMessage(false);
    EXPECT_EQ(estimate.timeRemaining(), QString());
    EXPECT_FALSE(estimate.cachedValue().has_value());

    // 0.1 s later, well inside the cache time: the hold-off text was not kept.
    clock->advance(milliseconds(100));
    EXPECT_EQ(estimate.timeRemaining(), QStringLiteral("00:00:01"));  // 10 * 4.0 / 90

    QVTimeEstimate stalled = QVTimeEstimate::timeEstimateWithTotal(1000, clock);
    stalled.start();
    clock->advance(seconds(4));
    EXPECT_EQ(stalled.timeRemaining(), kUnknown);
    EXPECT_FALSE(stalled.cachedValue().has_value());
    stalled.setCurrentValue(250);
    EXPECT_EQ(stalled.timeRemaining(), QStringLiteral("00:00:12"));

    // No total to measure against: no estimate, rather than a number made of infinities.
    QVTimeEstimate zeroTotal = QVTimeEstimate::timeEstimateWithTotal(0, clock);
    zeroTotal.start();
    zeroTotal.setCurrentValue(10);
    clock->advance(seconds(5));
    EXPECT_EQ(zeroTotal.secondsRemaining(), -1.0);
    EXPECT_EQ(zeroTotal.timeRemaining(), kUnknown);
}

TEST(QVTimeEstimateTest, EstimatesAndFormatsHoursWithinTheDay) {
    const auto clock = std::make_shared<FakeClock>();
    QVTimeEstimate estimate = QVTimeEstimate::timeEstimateWithTotal(1000, clock);
    estimate.start();
    estimate.setCurrentValue(250);
    clock->advance(seconds(10));
    EXPECT_DOUBLE_EQ(estimate.secondsRemaining(), 30.0);
    EXPECT_EQ(estimate.timeRemaining(), QStringLiteral("00:00:30"));

    EXPECT_EQ(textHalfDoneAfter(milliseconds(9'000'200)), QStringLiteral("02:30:01"));
    EXPECT_EQ(textHalfDoneAfter(seconds(90'000)), QStringLiteral("01:00:00"));
    EXPECT_EQ(textHalfDoneAfter(milliseconds(86'399'500)), QStringLiteral("00:00:00"));
    EXPECT_EQ(textHalfDoneAfter(seconds(3 * 86'400 + 3'600 * 5 + 61)), QStringLiteral("05:01:01"));

    // A vanishing share done overflows to infinity; it saturates at 2^64 - 1 seconds.
    QVTimeEstimate endless = QVTimeEstimate::timeEstimateWithTotal(1e300, clock);
    endless.start();
    endless.setCurrentValue(1e-20);
    clock->advance(seconds(5));
    EXPECT_EQ(endless.timeRemaining(), QStringLiteral("07:00:15"));
}

TEST(QVTimeEstimateTest, KeepsTheTextForEightTenthsOfASecond) {
    const auto clock = std::make_shared<FakeClock>();
    QVTimeEstimate estimate = QVTimeEstimate::timeEstimateWithTotal(1000, clock);
    estimate.start();
    estimate.setCurrentValue(250);
    clock->advance(seconds(10));
    const QDateTime stored = clock->now();
    EXPECT_EQ(estimate.timeRemaining(), QStringLiteral("00:00:30"));
    EXPECT_EQ(estimate.lastQueryDate(), stored);

    clock->advance(milliseconds(500));
    estimate.setCurrentValue(500);
    EXPECT_EQ(estimate.timeRemaining(), QStringLiteral("00:00:30"));
    clock->advance(milliseconds(299));
    EXPECT_EQ(estimate.timeRemaining(), QStringLiteral("00:00:30"));
    EXPECT_EQ(estimate.lastQueryDate(), stored);  // a cached answer does not extend itself

    clock->advance(milliseconds(1));  // 10.8 s at 50 %
    EXPECT_EQ(estimate.timeRemaining(), QStringLiteral("00:00:11"));
    EXPECT_EQ(estimate.lastQueryDate(), clock->now());

    estimate.start();  // a new run drops the text at once
    EXPECT_EQ(estimate.timeRemaining(), kCalculating);
}

TEST(QVTimeEstimateTest, StartResumeResetAndIncrement) {
    const auto clock = std::make_shared<FakeClock>();
    QVTimeEstimate fresh(clock);
    EXPECT_TRUE(fresh.showCalculatingTimeMessage());
    EXPECT_FALSE(fresh.startDate() || fresh.startValue() || fresh.totalValue() ||
                 fresh.currentValue() || fresh.cachedValue() || fresh.lastQueryDate());
    fresh.incrementCurrentValue(40);
    fresh.incrementCurrentValue(2.5);
    EXPECT_EQ(fresh.currentValue(), 42.5);

    // Resumed half-way: the 25 % done since is divided by the whole total, so 30 s are
    // shown where 10 s remain.
    QVTimeEstimate resumed = QVTimeEstimate::timeEstimateWithTotal(1000, clock);
    resumed.setCurrentValue(500);
    resumed.startWithValue(500);
    EXPECT_EQ(resumed.currentValue(), 500.0);  // an existing value is kept
    EXPECT_EQ(resumed.startDate(), clock->now());
    resumed.incrementCurrentValue(250);
    clock->advance(seconds(10));
    EXPECT_DOUBLE_EQ(resumed.secondsRemaining(), 30.0);
    const QDateTime started = *resumed.startDate();
    EXPECT_EQ(resumed.timeRemaining(), QStringLiteral("00:00:30"));

    resumed.reset();
    EXPECT_EQ(resumed.startValue(), 0.0);
    EXPECT_EQ(resumed.currentValue(), 0.0);
    EXPECT_FALSE(resumed.cachedValue().has_value());
    EXPECT_FALSE(resumed.lastQueryDate().has_value());
    EXPECT_EQ(resumed.startDate(), started);
    EXPECT_EQ(resumed.totalValue(), 1000.0);
    EXPECT_EQ(resumed.timeRemaining(), kUnknown);

    resumed.start();
    EXPECT_EQ(resumed.startValue(), 0.0);
    EXPECT_EQ(resumed.startDate(), clock->now());
}

TEST(QVTimeEstimateTest, ArchivedFormRoundTripsAndRejectsShortStreams) {
    const auto clock = std::make_shared<FakeClock>();
    QVTimeEstimate full = QVTimeEstimate::timeEstimateWithTotal(4096.5, clock);
    full.startWithValue(12.25);
    full.setCurrentValue(1024.75);
    clock->advance(seconds(20));
    EXPECT_FALSE(full.timeRemaining().isEmpty());
    full.setShowCalculatingTimeMessage(false);

    QVTimeEstimate sparse(clock);  // only the total and the message flag
    sparse.setTotalValue(7);
    for (const QVTimeEstimate* original : {&full, &sparse}) {
        QByteArray bytes;
        {
            QDataStream out(&bytes, QIODevice::WriteOnly);
            original->encode(out);
        }
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
            EXPECT_EQ(target.currentValue(), 5.0);
            EXPECT_FALSE(target.totalValue().has_value());
        }
    }

    // The archived form written out by hand: fields in order, each behind a presence flag.
    const QDateTime start(QDate(2023, 7, 14), QTime(18, 30, 5, 250), Qt::UTC);
    QByteArray bytes;
    {
        QDataStream out(&bytes, QIODevice::WriteOnly);
        out << true << start << true << 1.0 << true << 3.0 << true << 2.0 << false << true
            << start.addSecs(9) << QStringLiteral("showCalculatingTimeMessage") << false;
    }
    QDataStream in(bytes);
    QVTimeEstimate decoded(clock);
    ASSERT_TRUE(decoded.decode(in));
    EXPECT_EQ(decoded.startDate(), start);
    EXPECT_EQ(decoded.startValue(), 1.0);
    EXPECT_EQ(decoded.totalValue(), 3.0);
    EXPECT_EQ(decoded.currentValue(), 2.0);
    EXPECT_FALSE(decoded.cachedValue().has_value());
    EXPECT_EQ(decoded.lastQueryDate(), start.addSecs(9));
    EXPECT_FALSE(decoded.showCalculatingTimeMessage());

    QByteArray wrongKey;
    {
        QDataStream out(&wrongKey, QIODevice::WriteOnly);
        out << false << false << false << false << false << false << QStringLiteral("show") << true;
    }
    QDataStream wrongIn(wrongKey);
    EXPECT_FALSE(decoded.decode(wrongIn));
    EXPECT_EQ(decoded.startDate(), start);
}

TEST(QVTimeEstimateTest, CopiesAreIndependentAndKeepTheClock) {
    const auto clock = std::make_shared<FakeClock>();
    QVTimeEstimate original = QVTimeEstimate::timeEstimateWithTotal(1000, clock);
    original.start();
    original.setCurrentValue(250);
    clock->advance(seconds(10));
    EXPECT_EQ(original.timeRemaining(), QStringLiteral("00:00:30"));

    QVTimeEstimate copy(original);
    QVTimeEstimate assigned(clock);
    assigned.setTotalValue(1);
    assigned = original;
    EXPECT_TRUE(copy == original);
    EXPECT_TRUE(assigned == original);

    original.reset();
    original.setTotalValue(5);
    EXPECT_EQ(copy.currentValue(), 250.0);
    EXPECT_EQ(copy.totalValue(), 1000.0);
    EXPECT_EQ(copy.cachedValue(), QStringLiteral("00:00:30"));
    EXPECT_TRUE(copy == assigned);

    const QVTimeEstimate& self = assigned;
    assigned = self;
    EXPECT_EQ(assigned.totalValue(), 1000.0);

    // The copy reads the same fake clock: 10.8 s at 25 % is 32.4 s, so 33.
    clock->advance(milliseconds(800));
    EXPECT_EQ(copy.timeRemaining(), QStringLiteral("00:00:33"));
}
