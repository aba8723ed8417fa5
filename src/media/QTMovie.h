#pragma once
// A movie opened through libavformat (QuickTime, MP4 and whatever else it reads): its
// duration, its first video track's media attributes and its timecode timing. Everything
// is read once when the movie is opened; the object holds no open file afterwards.
//
// Thread-safety: immutable once made; open() may run on any thread.

#include <QString>
#include <memory>
#include <optional>

#include "QTTime.h"
#include "QTTrack.h"

class QTMovie {
    struct Token {
        explicit Token() = default;
    };

  public:
    /// How an editing application counts frames of the movie's timecode.
    struct Timing {
        int timebase = 30;       ///< whole frames per timecode second (30 for 29.97)
        bool ntsc = false;       ///< the real rate is timebase × 1000/1001
        bool dropFrame = false;  ///< timecode labels skip frame numbers to keep clock time
    };

    /// The movie at path, or null when libavformat cannot open it or read its streams.
    static std::unique_ptr<QTMovie> open(const QString& path);

    /// What timing() of the opened movie would be, without reading the movie through to
    /// count its frames; nullopt also when the movie cannot be opened.
    static std::optional<Timing> timingOfMovie(const QString& path);

    /// Turns off the media library's own messages on standard error, process-wide.
    static void quietLibraryMessages();

    QString path() const { return path_; }
    /// The movie's time scale: its first video track's media scale, else microseconds.
    qint32 timeScale() const { return duration_.timeScale; }
    /// The whole movie's length at timeScale().
    QTTime duration() const { return duration_; }
    /// The first video track (cover pictures do not count); nullopt when there is none.
    std::optional<QTTrack> firstVideoTrack() const { return videoTrack_; }
    /// From the timecode track's frame quanta and drop-frame flag where there is one,
    /// otherwise from the video frame rate (drop-frame then only when a timecode text says
    /// so); nullopt when the movie has neither.
    std::optional<Timing> timing() const { return timing_; }

    explicit QTMovie(Token) {}

  private:
    QString path_;
    QTTime duration_;
    std::optional<QTTrack> videoTrack_;
    std::optional<Timing> timing_;
};
