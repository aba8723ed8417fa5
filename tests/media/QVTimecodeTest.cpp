// Timecode text and frame counts: drop-frame examples and minute boundaries, other timebases,
// loose and typed input, ranges, and the time of day.

#include <gtest/gtest.h>

#include <QDateTime>
#include <limits>

#include "QVTimecode.h"

namespace {

QString format(qint64 frames, int timebase = 30, bool ntsc = true, bool dropFrame = true,
               qint64 start = 0) {
    return QVTimecode::timecodeFromFrameCount(frames, timebase, ntsc, dropFrame, start);
}

qint64 parse(const QString& timecode, int timebase = 30, bool dropFrame = true, qint64 start = 0) {
    return QVTimecode::frameCountFromTimecode(timecode, timebase, true, dropFrame, start);
}

struct Vector {
    qint64 frames;
    const char* timecode;
};

}  // namespace

TEST(QVTimecodeTest, NtscDropFrameAtThirty) {
    const Vector vectors[] = {
        {0, "00:00:00;00"},
        {1800, "00:01:00;02"},
        {17981, "00:09:59;29"},
        {17982, "00:10:00;00"},
        {35964, "00:20:00;00"},
        {107891, "00:59:59;29"},
        {1799, "00:01:00;01"},  // the real-time minute estimate already reaches 1
        // The minute is taken from 1000/1001 in single precision, which gives 108 here; in
        // double precision it would be 109 and the label would read 01:49:00;02.
        {196004, "01:49:00;00"},
    };
    for (const auto& [frames, timecode] : vectors) {
        EXPECT_EQ(format(frames), timecode) << frames;
    }

    // Start frame -1 is the tape's usual 01:00:00;00, in both directions.
    EXPECT_EQ(format(0, 30, true, true, -1), "01:00:00;00");
    EXPECT_EQ(parse("01:00:00;00", 30, true, -1), 0);
    EXPECT_EQ(format(0, 30, false, false, -1), "00:59:56:12");
    EXPECT_EQ(format(0, 30, false, false, 30), "00:00:01:00");
    EXPECT_EQ(parse("00:00:01:00", 30, false, 30), 0);

    // Without ntsc the minute is counted at exactly 30 frames per second.
    EXPECT_EQ(format(1799, 30, false, true), "00:00:59;29");
}

TEST(QVTimecodeTest, DropFrameMinuteBoundaries) {
    // Consecutive frames across labelled minutes 1, 5 and 10: the skipped labels move
    // with the real-time estimate, and every tenth minute skips none.
    const Vector vectors[] = {
        {1798, "00:00:59;28"},  {8991, "00:04:59;29"},  {8992, "00:05:00;02"},
        {17983, "00:10:00;01"}, {19780, "00:10:59;28"}, {19781, "00:11:00;01"},
    };
    for (const auto& [frames, timecode] : vectors) {
        EXPECT_EQ(format(frames), timecode) << frames;
    }
    // The first frames of a minute come back; parsing rounds the minute, so labels in a
    // minute's last half come back two frames short.
    for (const qint64 frames : {1799, 1800, 8992, 17981, 17982, 17983, 19781}) {
        EXPECT_EQ(parse(format(frames)), frames) << frames;
    }
    EXPECT_EQ(parse("00:00:29;29"), 899);
    EXPECT_EQ(parse("00:00:30;00"), 898);

    // Stepping forward from a minute's last label lands short: the parse comes back two
    // frames early. Kept, as the two directions are not mirror images.
    EXPECT_EQ(QVTimecode::timecode("00:04:59;29", 1, 30, true, true), "00:04:59;28");
    EXPECT_EQ(QVTimecode::timecode("00:05:00;02", -1, 30, true, true), "00:04:59;29");
    EXPECT_EQ(QVTimecode::timecode("00:00:10:00", 5, 25, false, false), "00:00:10:05");
    EXPECT_EQ(QVTimecode::timecode("00:01:00:00", -1, 25, false, false), "00:00:59:24");
}

TEST(QVTimecodeTest, OtherTimebases) {
    // Sixty skips two labels per minute, not four.
    EXPECT_EQ(format(3600, 60), "00:01:00;02");
    EXPECT_EQ(parse("00:01:00;02", 60), 3600);
    // So twenty real minutes at 59.94 label short of 00:20:00.
    EXPECT_EQ(format(35964 * 2, 60), "00:19:59;24");

    // Any other timebase ignores the drop flag both ways.
    EXPECT_EQ(format(1800, 25), "00:01:12:00");
    EXPECT_EQ(parse("00:01:12:00", 25), 1800);
    EXPECT_EQ(parse("00:01:00;02", 24), 1442);

    // Timebase 0 or less is 30.
    EXPECT_EQ(format(1800, 0), "00:01:00;02");
    EXPECT_EQ(parse("00:01:00;02", -5), 1800);

    // Hours wrap after a day; negative counts give negative fields.
    EXPECT_EQ(format(30 * 86400 + 31, 30, false, false), "00:00:01:01");
    EXPECT_EQ(format(-31, 30, false, false), "00:00:-02:-01");
    // Counts far out of range give a stable text rather than undefined behaviour.
    EXPECT_FALSE(format(std::numeric_limits<qint64>::max(), 30, false, false).isEmpty());
}

TEST(QVTimecodeTest, ParsingLooseText) {
    EXPECT_EQ(parse("01:02:03"), -1);
    EXPECT_EQ(parse(" \t00:00:01:05\n", 30, false), 35);
    EXPECT_EQ(parse("01:00:00:00:99", 30, false), 108000);
    EXPECT_EQ(parse("xx:00:02abc:3", 30, false), 63);
    EXPECT_EQ(parse("::1:", 30, false), 30);
    EXPECT_EQ(parse("00:00:-1:00", 30, false), -30);
}

TEST(QVTimecodeTest, UserStringExpansion) {
    const struct {
        const char* typed;
        const char* expected;
    } cases[] = {
        {"5", "00:00:00:05"},           {"1.2", "00:00:01:02"},
        {"1.", "00:00:01:00"},          {"1..", "00:01:00:00"},
        {"1...", "01:00:00:00"},        {"1:2", "00:00:00:12"},
        {"123456789", "23:45:67:89"},   {"1,,", "00:01:00:00"},
        {"1.,2", "00:00:01:02"},        {"", "00:00:00:00"},
        {"1....", "00:00:00:00"},        // eight zeros behind the 1, then only the last eight count
        {"abcdefghijk", "abcdefghijk"},  // eleven characters are taken as complete
    };
    for (const auto& [typed, expected] : cases) {
        EXPECT_EQ(QVTimecode::timecodeFromUserString(typed, false, QString()), expected) << typed;
    }
    EXPECT_EQ(QVTimecode::timecodeFromUserString("1.2", false, "01:00:00:00"), "01:00:01:02");
    EXPECT_EQ(QVTimecode::timecodeFromUserString("12345", true, QString()), "00:01:23;45");
    // A start no longer than the result is not used.
    EXPECT_EQ(QVTimecode::timecodeFromUserString("1.2", false, "10:00"), "01:02");
}

TEST(QVTimecodeTest, RangeIsCountedAtTwentyFour) {
    EXPECT_FALSE(QVTimecode::timecodeInRange("00:00:00:29", "00:00:00:00", "00:00:01:00"));
    EXPECT_TRUE(QVTimecode::timecodeInRange("00:00:01:00", "00:00:00:00", "00:00:01:00"));
    EXPECT_FALSE(QVTimecode::timecodeInRange("00:00:00:10", "00:00:01:00", "00:00:00:00"));
    // Equal texts count even when they do not parse.
    EXPECT_TRUE(QVTimecode::timecodeInRange("junk", "junk", "00:00:01:00"));
    // Unparsable text is the largest value: beyond any end, but within an unparsable one.
    EXPECT_FALSE(QVTimecode::timecodeInRange("junk", "00:00:00:00", "23:59:59:23"));
    EXPECT_TRUE(QVTimecode::timecodeInRange("junk", "00:00:00:00", "other"));
}

TEST(QVTimecodeTest, TimeOfDayAndModulus) {
    const QDateTime moment(QDate(2024, 3, 7), QTime(9, 5, 7, 509));
    EXPECT_EQ(QVTimecode::timeOfDayTimecode(30, true, true, moment), "09:05:07;14");
    // The separator follows the flag whatever the timebase; 25 NTSC has no rate.
    EXPECT_EQ(QVTimecode::timeOfDayTimecode(25, true, true, moment), "09:05:07;00");
    const QDateTime late(QDate(2024, 3, 7), QTime(14, 30, 59, 999));
    EXPECT_EQ(QVTimecode::timeOfDayTimecode(24, false, false, late), "14:30:59:23");
    EXPECT_EQ(QVTimecode::frameRateFromTimebase(30, true), 30000.0 / 1001.0);
    EXPECT_EQ(QVTimecode::frameRateFromTimebase(24, true), 24000.0 / 1001.0);

    EXPECT_EQ(QVTimecode::modulus(-7, 3), -1);
    EXPECT_EQ(QVTimecode::modulus(7, -3), 1);
    EXPECT_EQ(QVTimecode::modulus(5.5, 2), 1.5);
}
