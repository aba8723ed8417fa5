#pragma once
// Tiny movies made with the ffmpeg command-line tool, and what ffprobe says of them.

#include <QJsonObject>
#include <QString>
#include <QTemporaryDir>
#include <memory>
#include <optional>

class TestMovies {
  public:
    /// Null when ffmpeg or ffprobe is not installed.
    static std::optional<TestMovies> create();

    /// A movie of `seconds` of a test pattern at `rate` ("30000/1001", "25"...), with a
    /// timecode track starting at `timecode` when one is given. False when ffmpeg failed.
    bool make(const QString& path, const QString& rate, const QString& seconds,
              const QString& timecode = QString()) const;

    /// Frames of the first video stream counted by decoding them (ffprobe -count_frames).
    qint64 countedFrames(const QString& path) const;

    /// The movie's media, stream by stream, as ffmpeg hashes it without decoding.
    QByteArray payloadDigest(const QString& path) const;
    /// The container's metadata tags as ffprobe reads them.
    QJsonObject tags(const QString& path) const;

    QString folder() const { return dir_->path(); }
    QString file(const QString& name) const { return dir_->filePath(name); }

    TestMovies(TestMovies&&) = default;

  private:
    TestMovies(QString ffmpeg, QString ffprobe);

    QString ffmpeg_;
    QString ffprobe_;
    std::unique_ptr<QTemporaryDir> dir_;
};
