#pragma once
// Frame counts to timecode text and back, drop-frame labelling for 29.97 and 59.94
// material, and the short forms users type. Every function is thread-safe; the only state is
// the clock the programs' setup installs for the time of day.
//
// The arithmetic is deliberately approximate (a single-precision 1000/1001, a real-time
// minute estimate when formatting, rounding when parsing): movie files and sheets written
// earlier carry these exact results, so they must not be "corrected".

#include <QDateTime>
#include <QString>
#include <QtGlobal>

class Clock;

class QVTimecode {
  public:
    /// The frame number of 01:00:00;00 in 29.97 drop-frame; a negative start frame means it.
    static constexpr qint64 kDefaultStartFrame = 107892;

    /// "HH:MM:SS:FF", or "HH:MM:SS;FF" when `dropFrame` is set and the timebase is 30 or
    /// 60 (two frame numbers skipped per minute except every tenth). A timebase of 0 or
    /// less means 30; hours wrap after 24; negative counts give negative fields.
    static QString timecodeFromFrameCount(qint64 frameCount, int timebase, bool ntsc,
                                          bool dropFrame, qint64 startFrame);

    /// The frame count of `timecode` less the start frame; -1 when the text has fewer
    /// than four fields. Accepts ":" and ";" anywhere; `ntsc` is not used.
    static qint64 frameCountFromTimecode(const QString& timecode, int timebase, bool ntsc,
                                         bool dropFrame, qint64 startFrame);

    /// `timecode` moved by `incrementBy` frames, both directions counted from frame 0.
    static QString timecode(const QString& timecode, qint64 incrementBy, int timebase, bool ntsc,
                            bool dropFrame);

    /// The timebase itself, or with `isNTSC` the 1000/1001 rate for 24, 30 and 60 (0 for
    /// any other timebase).
    static double frameRateFromTimebase(int timebase, bool isNTSC);

    /// A full timecode from what a user typed: "." and "," stand for pairs of zeros,
    /// missing leading fields come from `startTimecode` (midnight when empty). Eleven
    /// characters are taken as complete; no field is range-checked.
    static QString timecodeFromUserString(const QString& userString, bool dropFrame,
                                          const QString& startTimecode);

    /// The current local time of day as a timecode, from the installed clock (empty with
    /// none installed: no time is better than a made-up one).
    static QString timeOfDayTimecode(int timebase, bool ntsc, bool dropFrame);
    /// Returns the clock installed before (null at first).
    static const Clock* install(const Clock* clock);
    /// The time of day of `localTime` as a timecode; frames from its hundredths of a second.
    static QString timeOfDayTimecode(int timebase, bool ntsc, bool dropFrame,
                                     const QDateTime& localTime);

    /// True when `timecode` equals `start` or `end` as text, or lies between them counted
    /// at 24 frames per second as unsigned numbers (so unparsable text counts as largest).
    static bool timecodeInRange(const QString& timecode, const QString& start, const QString& end);

    /// `a` less `b` times the truncated quotient: the result has the sign of `a`.
    static double modulus(double a, double b);
};
