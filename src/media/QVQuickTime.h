#pragma once
// Frame and time arithmetic on movies, their display forms, and the names of audio
// channel labels. Class-level operations only; a null movie stands for one that could not
// be opened.

#include <QString>

#include "QTMovie.h"
#include "QTTime.h"
#include "QTTrack.h"

class QVQuickTime {
  public:
    /// fpsFromQTTrack of the movie's first video track; 0 without a movie or video track.
    static double fpsForMovie(const QTMovie* movie);
    /// sampleCount × timeScale / duration; 0 when the track has no samples or no length.
    static double fpsFromQTTrack(const QTTrack& track);

    /// value / scale × rate rounded half away from zero; 0 for a zero scale.
    static qint64 frameCountForTimeValue(qint64 timeValue, qint64 timeScale, double frameRate);
    /// The above at the track's rate, first rounded to single precision.
    static qint64 frameCountForQTTime(const QTTime& time, const QTTrack& track);
    /// The above for the movie's first video track; 0 without one.
    static qint64 frameCountForQTTime(const QTTime& time, const QTMovie* movie);

    /// floor(scale × frame / rate) at that scale; a zero value for a zero rate.
    static QTTime qtTimeFromFrame(qint64 frame, qint32 timeScale, double frameRate);
    /// The above at the movie's time scale and rate; a zero time without a movie.
    static QTTime qtTimeFromFrame(qint64 frame, const QTMovie* movie);

    /// The movie's duration value divided by its rate, truncated (the scale is kept in).
    static qint64 frameLengthForMovie(const QTMovie* movie);
    /// The time of the last frame; the whole duration when the movie counts no frames.
    static QTTime lastFrameTimeForMovie(const QTMovie* movie);

    /// "HH:MM:SS:FF" with frames = round(fraction of the second × fps); hours run past
    /// whole days modulo 24, as the time text they are cut from shows them.
    static QString formattedQTTime(const QTTime& time, double fps);
    static QString formattedQTTime(const QTTime& time, const QTTrack& track);
    static QString formattedQTTime(const QTTime& time, const QTMovie* movie);

    /// Not available in this build: each prints its reason to standard error and returns
    /// an empty text, a zero time, or false with the outputs set to 0 / false.
    static QString timecodeAtTime(const QTTime& time, const QTMovie* movie);
    static QTTime qtTimeFromTimecode(const QString& timecode, const QTMovie* movie);
    static bool getTimingInfoForMovie(const QTMovie* movie, int& timebase, bool& ntsc,
                                      bool& dropFrame);

    /// Display name of an audio channel label code; "Unknown" for codes without one.
    static QString friendlyAudioChannelLabel(quint32 label);
};
