// The time-left text: held off at first, never less than what is left, kept for 0.8 s, and
// reset runs.
#include <gtest/gtest.h>

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

TEST_F(QVTimeEstimateTest, ResetKeepsTheStartAndTheTotal) {
    QVTimeEstimate estimate = running(250, 10'000);
    const QDateTime started = *estimate.startDate();
    estimate.reset();
    EXPECT_EQ(estimate.currentValue(), 0.0);
    EXPECT_EQ(estimate.startDate(), started);
    EXPECT_EQ(estimate.totalValue(), 1000.0);
    EXPECT_EQ(estimate.timeRemaining(), "Unknown");
}

}  // namespace
