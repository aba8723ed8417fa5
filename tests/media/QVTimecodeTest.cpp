// Timecode text and frame counts: known labels both ways (drop frame, minute boundaries, other
// timebases, loose text), stepping, typed input, ranges and the time of day.
#include <gtest/gtest.h>

#include <QDateTime>
#include <cctype>
#include <limits>

#include "FakeClock.h"
#include "QVTimecode.h"

namespace {

enum Direction { Both, Format, Parse };

struct Label {
    Direction direction;
    qint64 frames;
    const char* text;
    int timebase = 30;
    bool dropFrame = true;
    bool ntsc = true;
    qint64 start = 0;
    friend void PrintTo(const Label& l, std::ostream* os) { *os << l.frames << " " << l.text; }
};

class TimecodeLabel : public testing::TestWithParam<Label> {};

TEST_P(TimecodeLabel, MatchesTheKnownFrameCount) {
    const Label& l = GetParam();
    if (l.direction != Parse) {
        EXPECT_EQ(
            QVTimecode::timecodeFromFrameCount(l.frames, l.timebase, l.ntsc, l.dropFrame, l.start),
            l.text);
    }
    if (l.direction != Format) {
        EXPECT_EQ(
            QVTimecode::frameCountFromTimecode(l.text, l.timebase, l.ntsc, l.dropFrame, l.start),
            l.frames);
    }
}

std::string labelName(const testing::TestParamInfo<Label>& info) {
    std::string name = std::string(info.param.direction == Both     ? "Both"
                                   : info.param.direction == Format ? "Format"
                                                                    : "Parse") +
                       "_" + info.param.text + "_tb" + std::to_string(info.param.timebase) +
                       (info.param.dropFrame ? "df" : "") + (info.param.ntsc ? "ntsc" : "") +
                       "_start" + std::to_string(info.param.start);
    for (char& c : name)
        c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    return name;
}

// 29.97 drop frame skips labels 0 and 1 of each minute but every tenth, from a real-time
// minute estimate; parsing rounds the minute, so the two directions are not mirror images.
INSTANTIATE_TEST_SUITE_P(
    DropFrame, TimecodeLabel,
    testing::Values(Label{Both, 0, "00:00:00;00"}, Label{Both, 1799, "00:01:00;01"},
                    Label{Both, 1800, "00:01:00;02"}, Label{Both, 17981, "00:09:59;29"},
                    Label{Both, 17982, "00:10:00;00"}, Label{Both, 17983, "00:10:00;01"},
                    Label{Both, 8992, "00:05:00;02"}, Label{Both, 19781, "00:11:00;01"},
                    Label{Format, 1798, "00:00:59;28"}, Label{Format, 8991, "00:04:59;29"},
                    Label{Format, 19780, "00:10:59;28"}, Label{Format, 35964, "00:20:00;00"},
                    Label{Format, 107891, "00:59:59;29"},
                    // Single precision for 1000/1001 gives minute 108; double would give 109.
                    Label{Format, 196004, "01:49:00;00"}, Label{Parse, 899, "00:00:29;29"},
                    Label{Parse, 898, "00:00:30;00"},
                    // Start frame -1 is the tape's usual 01:00:00;00.
                    Label{Both, 0, "01:00:00;00", 30, true, true, -1}),
    labelName);

INSTANTIATE_TEST_SUITE_P(
    OtherRatesAndText, TimecodeLabel,
    testing::Values(Label{Format, 0, "00:59:56:12", 30, false, false, -1},
                    Label{Both, 0, "00:00:01:00", 30, false, false, 30},
                    Label{Format, 1799, "00:00:59;29", 30, true, false},  // no NTSC: exact minutes
                    Label{Both, 3600, "00:01:00;02", 60},   // sixty skips two labels, not four
                    Label{Both, 1800, "00:01:12:00", 25},   // other timebases ignore the flag
                    Label{Format, 1800, "00:01:00;02", 0},  // timebase 0 or less is 30
                    Label{Parse, 1800, "00:01:00;02", -5},
                    Label{Format, 30 * 86400 + 31, "00:00:01:01", 30, false, false},  // a day wraps
                    Label{Format, -31, "00:00:-02:-01", 30, false, false},
                    Label{Parse, -1, "01:02:03"}, Label{Parse, 35, " \t00:00:01:05\n", 30, false},
                    Label{Parse, 63, "xx:00:02abc:3", 30, false}),
    labelName);

// Stepping, typing, ranges and the time of day through the same labels; the largest count
// gives a stable text, no undefined behaviour.
TEST(QVTimecodeTest, SteppingTypingRangesAndTheTimeOfDay) {
    EXPECT_EQ(QVTimecode::timecode("00:05:00;02", -1, 30, true, true), "00:04:59;29");
    EXPECT_FALSE(
        QVTimecode::timecodeFromFrameCount(std::numeric_limits<qint64>::max(), 30, false, false, 0)
            .isEmpty());
    // Typed digits: "." moves to the next field, eleven characters count as complete.
    for (const auto& [keys, expected] : {std::pair{"1.2", "00:00:01:02"},
                                         {"1...", "01:00:00:00"},
                                         {"123456789", "23:45:67:89"},
                                         {"", "00:00:00:00"}})
        EXPECT_EQ(QVTimecode::timecodeFromUserString(keys, false, QString()), expected) << keys;
    // Ranges count 24 frames a second; unparsable text is the largest value.
    EXPECT_FALSE(QVTimecode::timecodeInRange("00:00:00:29", "00:00:00:00", "00:00:01:00"));
    EXPECT_TRUE(QVTimecode::timecodeInRange("00:00:01:00", "00:00:00:00", "00:00:01:00"));
    EXPECT_FALSE(QVTimecode::timecodeInRange("junk", "00:00:00:00", "23:59:59:23"));
    const QDateTime moment(QDate(2024, 3, 7), QTime(9, 5, 7, 509));
    EXPECT_EQ(QVTimecode::timeOfDayTimecode(30, true, true, moment), "09:05:07;14");
    EXPECT_EQ(QVTimecode::timeOfDayTimecode(30, true, true), "") << "no clock, no time";
    const FakeClock clock(moment);
    QVTimecode::install(&clock);
    EXPECT_EQ(QVTimecode::timeOfDayTimecode(30, true, true), "09:05:07;14");
    QVTimecode::install(nullptr);
}

}  // namespace
