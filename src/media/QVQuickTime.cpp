#include "QVQuickTime.h"

#include <cmath>
#include <cstdio>
#include <map>

namespace {

void printToConsole(const char* line) {
    std::fprintf(stderr, "%s\n", line);
}

QString twoDigits(qint64 value) {
    return (value < 10 ? QStringLiteral("0") : QString()) + QString::number(value);
}

constexpr quint32 kDiscreteBase = 65536;
constexpr quint32 kDiscreteCount = 16;

const std::map<quint32, const char*>& channelLabelNames() {
    static const std::map<quint32, const char*> names = {
        {1, "Left"},
        {2, "Right"},
        {3, "Center"},
        {4, "LFE"},
        {5, "Left Surround"},
        {6, "Right Surround"},
        {7, "Left Center"},
        {8, "Right Center"},
        {9, "Center Surround"},
        {10, "Left Surround Direct"},
        {11, "Right Surround Direct"},
        {12, "Top Center Surround"},
        {13, "Vertical Height Left"},
        {14, "Vertical Height Center"},
        {15, "Vertical Height Right"},
        {16, "Top Back Left"},
        {17, "Top Back Center"},
        {18, "Top Back Right"},
        {33, "Rear Surround Left"},
        {34, "Rear Surround Right"},
        {35, "Left Wide"},
        {36, "Right Wide"},
        {37, "LFE2"},
        {38, "Left Total"},
        {39, "Right Total"},
        {40, "Hearing Impaired"},
        {41, "Narration"},
        {42, "Mono"},
        {43, "Dialogue Centric Mix"},
        {44, "Center Surround Direct"},
        {45, "Haptic"},
        {301, "Headphones Left"},
        {302, "Headphones Right"},
        {304, "Click Track"},
        {305, "Foreign Language"},
        {400, "Discrete"},
    };
    return names;
}

}  // namespace

double QVQuickTime::fpsForMovie(const QTMovie* movie) {
    if (!movie)
        return 0;
    const auto track = movie->firstVideoTrack();
    return track ? fpsFromQTTrack(*track) : 0;
}

double QVQuickTime::fpsFromQTTrack(const QTTrack& track) {
    if (track.sampleCount < 1 || track.duration == 0)
        return 0;
    return static_cast<double>(track.sampleCount) * track.timeScale /
           static_cast<double>(track.duration);
}

qint64 QVQuickTime::frameCountForTimeValue(qint64 timeValue, qint64 timeScale, double frameRate) {
    if (timeScale == 0)
        return 0;
    return std::llround(static_cast<double>(timeValue) / static_cast<double>(timeScale) *
                        frameRate);
}

qint64 QVQuickTime::frameCountForQTTime(const QTTime& time, const QTTrack& track) {
    const float rate = static_cast<float>(fpsFromQTTrack(track));
    return frameCountForTimeValue(time.timeValue, time.timeScale, rate);
}

qint64 QVQuickTime::frameCountForQTTime(const QTTime& time, const QTMovie* movie) {
    if (!movie)
        return 0;
    const auto track = movie->firstVideoTrack();
    return track ? frameCountForQTTime(time, *track) : 0;
}

QTTime QVQuickTime::qtTimeFromFrame(qint64 frame, qint32 timeScale, double frameRate) {
    if (frameRate == 0)
        return {0, timeScale, 0};
    const double value = std::floor(timeScale * (static_cast<double>(frame) / frameRate));
    return {static_cast<qint64>(value), timeScale, 0};
}

QTTime QVQuickTime::qtTimeFromFrame(qint64 frame, const QTMovie* movie) {
    if (!movie)
        return {};
    return qtTimeFromFrame(frame, movie->timeScale(), fpsForMovie(movie));
}

qint64 QVQuickTime::frameLengthForMovie(const QTMovie* movie) {
    const double rate = fpsForMovie(movie);
    if (rate == 0)
        return 0;
    return static_cast<qint64>(static_cast<double>(movie->duration().timeValue) / rate);
}

QTTime QVQuickTime::lastFrameTimeForMovie(const QTMovie* movie) {
    if (!movie)
        return {};
    const qint64 frames = frameCountForQTTime(movie->duration(), movie);
    if (frames <= 0)
        return movie->duration();
    return qtTimeFromFrame(frames - 1, movie);
}

QString QVQuickTime::formattedQTTime(const QTTime& time, double fps) {
    if (time.timeScale <= 0)
        return QStringLiteral("00:00:00:00");
    const qint64 value = std::llabs(time.timeValue);
    const qint64 seconds = value / time.timeScale;
    const qint64 remainder = value % time.timeScale;
    const qint64 frames = std::llround(static_cast<double>(remainder) / time.timeScale * fps);
    return twoDigits(seconds / 3600 % 24) + u':' + twoDigits(seconds / 60 % 60) + u':' +
           twoDigits(seconds % 60) + u':' + twoDigits(frames);
}

QString QVQuickTime::formattedQTTime(const QTTime& time, const QTTrack& track) {
    return formattedQTTime(time, fpsFromQTTrack(track));
}

QString QVQuickTime::formattedQTTime(const QTTime& time, const QTMovie* movie) {
    return formattedQTTime(time, fpsForMovie(movie));
}

QString QVQuickTime::timecodeAtTime(const QTTime&, const QTMovie*) {
    printToConsole("Unable to get QuickTime timecode track for 64-bit application.");
    return {};
}

QTTime QVQuickTime::qtTimeFromTimecode(const QString&, const QTMovie*) {
    printToConsole("Unable to get QuickTime time for 64-bit application.");
    return {};
}

bool QVQuickTime::getTimingInfoForMovie(const QTMovie*, int& timebase, bool& ntsc,
                                        bool& dropFrame) {
    printToConsole("Unable to get timing information for 64-bit application.");
    timebase = 0;
    ntsc = false;
    dropFrame = false;
    return false;
}

QString QVQuickTime::friendlyAudioChannelLabel(quint32 label) {
    if (label >= kDiscreteBase && label < kDiscreteBase + kDiscreteCount)
        return QStringLiteral("Discrete %1").arg(label - kDiscreteBase);
    const auto& names = channelLabelNames();
    const auto found = names.find(label);
    return found == names.end() ? QStringLiteral("Unknown") : QString::fromLatin1(found->second);
}
