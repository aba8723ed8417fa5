#include "TestMovies.h"

#include <QJsonDocument>
#include <QProcess>
#include <QStandardPaths>

namespace {

// What the program prints on standard output, as bytes (the text may be UTF-8 whatever the
// locale says); nothing when it did not end well within two minutes.
std::optional<QByteArray> outputOf(const QString& program, const QString& arguments,
                                   const QStringList& more) {
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(program, arguments.split(u' ') + more);
    if (!process.waitForFinished(120000) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0)
        return std::nullopt;
    return process.readAllStandardOutput();
}

}  // namespace

std::optional<TestMovies> TestMovies::create() {
    const QString ffmpeg = QStandardPaths::findExecutable("ffmpeg");
    const QString ffprobe = QStandardPaths::findExecutable("ffprobe");
    if (ffmpeg.isEmpty() || ffprobe.isEmpty())
        return std::nullopt;
    return TestMovies(ffmpeg, ffprobe);
}

TestMovies::TestMovies(QString ffmpeg, QString ffprobe)
    : ffmpeg_(std::move(ffmpeg)),
      ffprobe_(std::move(ffprobe)),
      dir_(std::make_unique<QTemporaryDir>()) {}

bool TestMovies::make(const QString& path, const QString& rate, const QString& seconds,
                      const QString& timecode) const {
    QStringList more{seconds, "-i", "testsrc=size=64x36:rate=" + rate};
    if (!timecode.isEmpty())
        more << "-timecode" << timecode;
    return outputOf(ffmpeg_, "-v error -nostdin -y -f lavfi -t",
                    more << "-c:v"
                         << "mpeg4" << path)
        .has_value();
}

qint64 TestMovies::countedFrames(const QString& path) const {
    bool ok = false;
    const qint64 frames = outputOf(ffprobe_,
                                   "-v error -count_frames -select_streams v:0 -show_entries "
                                   "stream=nb_read_frames -of default=nokey=1:noprint_wrappers=1",
                                   {path})
                              .value_or("")
                              .trimmed()
                              .toLongLong(&ok);
    return ok ? frames : -1;
}

QByteArray TestMovies::payloadDigest(const QString& path) const {
    return outputOf(ffmpeg_, "-v error -i", {path, "-map", "0", "-c", "copy", "-f", "md5", "-"})
        .value_or("");
}

QJsonObject TestMovies::tags(const QString& path) const {
    const QByteArray json =
        outputOf(ffprobe_, "-v error -show_entries format_tags -of json", {path}).value_or("");
    return QJsonDocument::fromJson(json)["format"]["tags"].toObject();
}
