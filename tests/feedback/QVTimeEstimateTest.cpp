// The time-left text: held off at first, never less than what is left, kept for 0.8 s, resumed
// and reset runs, and the archived form.
#include <gtest/gtest.h>

#include <QDataStream>
#include <QIODevice>

#include "FakeClock.h"
#include "QVTimeEstimate.h"

namespace {

using std::chrono::milliseconds;

class QVTimeEstimateTest : public testing::Test {
  protected:
    // Started now with `done` of `total` done, read `elapsed` later.
    QVTimeEstimate running(std::optional<double> done, qint64 elapsedMs, double total = 1000) {
        QVTimeEstimate estimate = QVTimeEstimate::timeEstimateWithTotal(total, clock);
        estimate.start();
        estimate.setCurrentValue(done);
        clock->advance(milliseconds(elapsedMs));
        return estimate;
    }
    const std::shared_ptr<FakeClock> clock = std::make_shared<FakeClock>();
};

struct TimeLeft {
    double done;  // of 1000
    qint64 elapsedMs;
    const char* text;
    friend void PrintTo(const TimeLeft& t, std::ostream* os) { *os << t.text; }
};

class TimeLeftText : public QVTimeEstimateTest, public testing::WithParamInterface<TimeLeft> {};

// The text never reads less than the estimate: rounded up, and hours run past a day.
TEST_P(TimeLeftText, NeverReadsLessThanTheEstimate) {
    QVTimeEstimate estimate = running(GetParam().done, GetParam().elapsedMs);
    const double left = estimate.secondsRemaining();
    const QString text = estimate.timeRemaining();
    EXPECT_EQ(text, GetParam().text);
    const QStringList parts = text.split(u':');
    ASSERT_EQ(parts.size(), 3);
    const double shown = parts[0].toDouble() * 3600 + parts[1].toInt() * 60 + parts[2].toInt();
    EXPECT_TRUE(shown >= left && shown < left + 1) << left;
}

INSTANTIATE_TEST_SUITE_P(
    Estimates, TimeLeftText,
    testing::Values(TimeLeft{250, 10'000, "00:00:30"}, TimeLeft{900, 4'000, "00:00:01"},
                    TimeLeft{500, 9'000'200, "02:30:01"}, TimeLeft{500, 86'399'500, "24:00:00"},
                    TimeLeft{500, 90'000'000, "25:00:00"},
                    TimeLeft{62.5, 100'000'000, "416:40:00"}),
    [](const testing::TestParamInfo<TimeLeft>& info) {
        return "Shows" + QString(info.param.text).replace(':', '_').toStdString();
    });

TEST_F(QVTimeEstimateTest, WithoutAnEstimateTheTextSaysSoAndIsNotKept) {
    const struct {
        double total;
        std::optional<double> done;
        qint64 elapsedMs;
        bool message;
        const char* text;
    } cases[] = {{1000, 900, 3900, true, "Calculating time"},
                 {1000, 900, 3900, false, ""},
                 {1000, 0, 4000, true, "Unknown"},
                 {1000, std::nullopt, 4000, true, "Unknown"},
                 {0, 10, 5000, true, "Unknown"}};  // no infinities shown
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        QVTimeEstimate estimate = running(c.done, c.elapsedMs, c.total);
        estimate.setShowCalculatingTimeMessage(c.message);
        EXPECT_EQ(estimate.timeRemaining(), c.text);
        EXPECT_EQ(estimate.secondsRemaining(), -1.0);
        estimate.setCurrentValue(250);
        clock->advance(milliseconds(100));  // well inside the cache time
        EXPECT_EQ(estimate.timeRemaining() == c.text, c.total == 0);
    }
}

TEST_F(QVTimeEstimateTest, KeepsTheTextForEightTenthsOfASecond) {
    QVTimeEstimate estimate = running(250, 10'000);
    const QDateTime stored = clock->now();
    EXPECT_EQ(estimate.timeRemaining(), "00:00:30");
    QVTimeEstimate copy(estimate);  // its own fields, the same clock
    clock->advance(milliseconds(500));
    estimate.setCurrentValue(500);
    clock->advance(milliseconds(299));
    EXPECT_EQ(estimate.timeRemaining(), "00:00:30");
    EXPECT_EQ(estimate.lastQueryDate(), stored);  // a cached answer does not extend itself
    clock->advance(milliseconds(1));              // 10.8 s at 50 %
    EXPECT_EQ(estimate.timeRemaining(), "00:00:11");
    EXPECT_EQ(copy.timeRemaining(), "00:00:33");  // 10.8 s at 25 %
    estimate.start();                             // a new run drops the text at once
    EXPECT_EQ(estimate.timeRemaining(), "Calculating time");
}

TEST_F(QVTimeEstimateTest, ResumedRunsErrLongAndResetKeepsTheStart) {
    QVTimeEstimate fresh(clock);
    fresh.incrementCurrentValue(40);
    fresh.incrementCurrentValue(2.5);
    EXPECT_EQ(fresh.currentValue(), 42.5);

    // Resumed half-way: the 25 % done since is divided by the whole total, so 30 s show
    // where 10 s remain.
    QVTimeEstimate resumed = QVTimeEstimate::timeEstimateWithTotal(1000, clock);
    resumed.setCurrentValue(500);
    resumed.startWithValue(500);
    EXPECT_EQ(resumed.currentValue(), 500.0);  // an existing value is kept
    resumed.incrementCurrentValue(250);
    clock->advance(std::chrono::seconds(10));
    const QDateTime started = *resumed.startDate();
    EXPECT_EQ(resumed.timeRemaining(), "00:00:30");
    resumed.reset();
    EXPECT_EQ(resumed.currentValue(), 0.0);
    EXPECT_EQ(resumed.startDate(), started);
    EXPECT_EQ(resumed.timeRemaining(), "Unknown");
}

TEST_F(QVTimeEstimateTest, ArchivedFormRoundTripsAndRejectsShortStreams) {
    QVTimeEstimate full = running(1024.75, 20'000, 4096.5);
    full.timeRemaining();  // fills the cached text and query date
    full.setShowCalculatingTimeMessage(false);
    QVTimeEstimate sparse(clock);  // only the total and the message flag
    sparse.setTotalValue(7);
    for (const QVTimeEstimate* original : {&full, &sparse}) {
        QByteArray bytes;
        QDataStream out(&bytes, QIODevice::WriteOnly);
        original->encode(out);
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
            EXPECT_FALSE(target.decode(cut)) << length;
            EXPECT_TRUE(target.currentValue() == 5.0 && !target.totalValue()) << length;
        }
    }
}

}  // namespace
