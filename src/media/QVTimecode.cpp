#include "QVTimecode.h"

#include <QRegularExpression>
#include <QStringList>
#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <limits>
#include <utility>

#include "Clock.h"

namespace {

std::atomic<const Clock*> installedClock{nullptr};

// 1000/1001 as stored in single precision; the double value differs and would move the
// drop-frame minute boundaries of long recordings.
constexpr float kNtscFactor = 1000.0f / 1001.0f;
constexpr int kDefaultTimebase = 30;
constexpr int kRangeTimebase = 24;

int effectiveTimebase(int timebase) {
    return timebase > 0 ? timebase : kDefaultTimebase;
}

qint64 effectiveStart(qint64 startFrame) {
    return startFrame < 0 ? QVTimecode::kDefaultStartFrame : startFrame;
}

bool dropsFrames(int timebase, bool dropFrame) {
    return dropFrame && (timebase == 30 || timebase == 60);
}

QChar framesSeparator(bool dropFrame) {
    return dropFrame ? u';' : u':';
}

// A double converted the way the processor converts an out-of-range value: to the
// type's lowest value, so huge or broken counts give a stable answer instead of
// undefined behaviour.
template <typename Integer>
Integer truncated(double value) {
    constexpr auto lowest = std::numeric_limits<Integer>::min();
    constexpr auto limit = -static_cast<double>(lowest);  // 2^(bits-1), exact
    if (!(value > -limit - 1.0 && value < limit)) {
        return lowest;
    }
    return static_cast<Integer>(value);
}

// Two's complement addition without the undefined behaviour of signed overflow.
qint64 wrappingAdd(qint64 a, qint64 b) {
    return static_cast<qint64>(static_cast<quint64>(a) + static_cast<quint64>(b));
}

qint64 wrappingMultiply(qint64 a, qint64 b) {
    return static_cast<qint64>(static_cast<quint64>(a) * static_cast<quint64>(b));
}

// A field read as a 32-bit integer: leading white space, an optional sign, then the
// leading digits; no digits reads as 0 and too many saturate.
qint64 fieldValue(const QString& field) {
    qsizetype i = 0;
    while (i < field.size() && field.at(i).isSpace()) {
        ++i;
    }
    bool negative = false;
    if (i < field.size() && (field.at(i) == u'-' || field.at(i) == u'+')) {
        negative = field.at(i) == u'-';
        ++i;
    }
    constexpr qint64 cap = qint64(std::numeric_limits<qint32>::max()) + 1;
    qint64 magnitude = 0;
    for (; i < field.size() && field.at(i) >= u'0' && field.at(i) <= u'9'; ++i) {
        magnitude = std::min(cap, magnitude * 10 + (field.at(i).unicode() - u'0'));
    }
    if (negative) {
        return -magnitude;
    }
    return std::min<qint64>(magnitude, std::numeric_limits<qint32>::max());
}

// At least two digits, the sign in front: the "%0.2li" of the stored texts.
QString twoDigits(qint64 value) {
    std::array<char, 32> buffer{};
    std::snprintf(buffer.data(), buffer.size(), "%.2lld", static_cast<long long>(value));
    return QString::fromLatin1(buffer.data());
}

// A time field with a leading "0" below 10, as the time-of-day form writes it.
QString zeroPadded(int value) {
    return value < 10 ? QStringLiteral("0") + QString::number(value) : QString::number(value);
}

QString replacedSuffix(const QString& text, QStringView suffix, const QString& replacement) {
    if (!text.endsWith(suffix)) {
        return text;
    }
    return text.left(text.size() - suffix.size()) + replacement;
}

// "." and "," stand for "00"; trailing runs of them for the zeros of the fields typed.
QString expandedPairs(QString text) {
    static const std::array<std::pair<QStringView, const char*>, 8> rules = {{
        {u"....", "00000000"},
        {u"...", ".000000"},
        {u"..", ".0000"},
        {u".", ".00"},
        {u",,,,", "00000000"},
        {u",,,", ",000000"},
        {u",,", ",0000"},
        {u",", ",00"},
    }};
    for (const auto& [suffix, replacement] : rules) {
        text = replacedSuffix(text, suffix, QString::fromLatin1(replacement));
    }
    QString joined;
    for (const QString& piece : text.split(QRegularExpression(QStringLiteral("[.,]")))) {
        joined += piece.size() == 1 ? QStringLiteral("0") + piece : piece;
    }
    return joined;
}

// Pairs from the right with ":" between them, the frames separator before the last.
QString regrouped(const QString& digits, bool dropFrame) {
    const QString even = digits.size() % 2 == 0 ? digits : QStringLiteral("0") + digits;
    QString result;
    for (qsizetype i = 0; i < even.size(); i += 2) {
        if (i == even.size() - 2) {
            result += framesSeparator(dropFrame);
        } else if (i > 0) {
            result += u':';
        }
        result += even.mid(i, 2);
    }
    return result;
}

}  // namespace

QString QVTimecode::timecodeFromFrameCount(qint64 frameCount, int timebase, bool ntsc,
                                           bool dropFrame, qint64 startFrame) {
    const int tb = effectiveTimebase(timebase);
    const bool drop = dropsFrames(tb, dropFrame);
    double n = static_cast<double>(wrappingAdd(frameCount, effectiveStart(startFrame)));
    if (drop) {
        // The minute is estimated from elapsed real time, not from the labelled minute.
        const double rate = ntsc ? tb * static_cast<double>(kNtscFactor) : tb;
        const double minutes = std::floor(n / rate / 60);
        n += 2 * (minutes - std::floor(minutes / 10));
    }
    const double x = n / tb;
    const qint64 totalSeconds = truncated<qint64>(std::floor(x));
    const qint32 wholeSeconds = truncated<qint32>(x);
    const qint64 frames = truncated<qint64>(std::round(n - static_cast<double>(wholeSeconds) * tb));

    const qint64 seconds = totalSeconds % 60;
    const qint64 minutes = (totalSeconds / 60) % 60;
    const qint64 hours = (totalSeconds / 3600) % 24;
    return twoDigits(hours) + u':' + twoDigits(minutes) + u':' + twoDigits(seconds) +
           framesSeparator(drop) + twoDigits(frames);
}

qint64 QVTimecode::frameCountFromTimecode(const QString& timecode, int timebase, bool /*ntsc*/,
                                          bool dropFrame, qint64 startFrame) {
    const int tb = effectiveTimebase(timebase);
    static const QRegularExpression separators(QStringLiteral("[:;]"));
    const QStringList fields = timecode.trimmed().split(separators);
    if (fields.size() < 4) {
        return -1;
    }
    const qint64 h = fieldValue(fields[0]);
    const qint64 m = fieldValue(fields[1]);
    const qint64 s = fieldValue(fields[2]);
    const qint64 f = fieldValue(fields[3]);
    const qint64 n = wrappingAdd(wrappingMultiply(h * 3600 + m * 60 + s, tb), f);
    const qint64 start = effectiveStart(startFrame);
    if (!dropsFrames(tb, dropFrame)) {
        return wrappingAdd(n, -start);
    }
    // Rounded, and without the NTSC factor: not the mirror image of the formatting side.
    const double minutes = std::round(static_cast<double>(n) / tb / 60);
    const qint64 dropped = truncated<qint64>(2 * (minutes - std::floor(minutes / 10)));
    return wrappingAdd(wrappingAdd(n, -dropped), -start);
}

QString QVTimecode::timecode(const QString& timecode, qint64 incrementBy, int timebase, bool ntsc,
                             bool dropFrame) {
    const qint64 frames = frameCountFromTimecode(timecode, timebase, ntsc, dropFrame, 0);
    return timecodeFromFrameCount(wrappingAdd(frames, incrementBy), timebase, ntsc, dropFrame, 0);
}

double QVTimecode::frameRateFromTimebase(int timebase, bool isNTSC) {
    if (!isNTSC) {
        return timebase;
    }
    if (timebase == 24 || timebase == 30 || timebase == 60) {
        return timebase * 1000.0 / 1001.0;
    }
    return 0;
}

QString QVTimecode::timecodeFromUserString(const QString& userString, bool dropFrame,
                                           const QString& startTimecode) {
    if (userString.size() == 11) {
        return userString;
    }
    QString digits = expandedPairs(userString);
    digits.remove(u':');
    digits.remove(u';');
    if (digits.size() >= 9) {
        digits = digits.right(8);
    }
    const QString result = digits.size() >= 3 ? regrouped(digits, dropFrame) : digits;
    const QString start =
        startTimecode.isEmpty()
            ? QStringLiteral("00:00:00") + framesSeparator(dropFrame) + QStringLiteral("00")
            : startTimecode;
    if (start.size() <= result.size()) {
        return result;
    }
    return start.left(start.size() - result.size()) + result;
}

QString QVTimecode::timeOfDayTimecode(int timebase, bool ntsc, bool dropFrame) {
    const Clock* clock = installedClock.load();
    if (clock == nullptr)
        return {};
    return timeOfDayTimecode(timebase, ntsc, dropFrame, clock->now());
}

const Clock* QVTimecode::install(const Clock* clock) {
    return installedClock.exchange(clock);
}

QString QVTimecode::timeOfDayTimecode(int timebase, bool ntsc, bool dropFrame,
                                      const QDateTime& localTime) {
    const QTime time = localTime.toLocalTime().time();
    const int hundredths = time.msec() / 10;
    const int frames =
        truncated<qint32>(std::floor(hundredths / 100.0 * frameRateFromTimebase(timebase, ntsc)));
    return zeroPadded(time.hour()) + u':' + zeroPadded(time.minute()) + u':' +
           zeroPadded(time.second()) + framesSeparator(dropFrame) + zeroPadded(frames);
}

bool QVTimecode::timecodeInRange(const QString& timecode, const QString& start,
                                 const QString& end) {
    if (timecode == start || timecode == end) {
        return true;
    }
    // Always counted at 24 frames per second, whatever the material's rate.
    const auto count = [](const QString& text) {
        return static_cast<quint64>(frameCountFromTimecode(text, kRangeTimebase, false, false, 0));
    };
    const quint64 t = count(timecode);
    return count(start) <= t && t <= count(end);
}

double QVTimecode::modulus(double a, double b) {
    return a - b * std::trunc(a / b);
}
