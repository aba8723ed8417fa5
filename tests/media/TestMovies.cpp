#include "TestMovies.h"

#include <QJsonDocument>
#include <QProcess>
#include <QStandardPaths>

#include "QVTaskEx.h"

std::optional<TestMovies> TestMovies::create() {
    const QString ffmpeg = QStandardPaths::findExecutable(QStringLiteral("ffmpeg"));
    const QString ffprobe = QStandardPaths::findExecutable(QStringLiteral("ffprobe"));
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
    QStringList arguments = QStringLiteral("-v error -nostdin -y -f lavfi -t").split(u' ');
    arguments << seconds << QStringLiteral("-i")
              << QStringLiteral("testsrc=size=64x36:rate=") + rate;
    if (!timecode.isEmpty())
        arguments << QStringLiteral("-timecode") << timecode;
    arguments << QStringLiteral("-c:v") << QStringLiteral("mpeg4") << path;
    return QVTaskEx::terminationCodeFromTask(ffmpeg_, arguments) == 0;
}

qint64 TestMovies::countedFrames(const QString& path) const {
    const QStringList arguments =
        QStringLiteral(
            "-v error -count_frames -select_streams v:0 -show_entries "
            "stream=nb_read_frames -of default=nokey=1:noprint_wrappers=1")
            .split(u' ');
    const QString output = QVTaskEx::stringFromTask(ffprobe_, arguments + QStringList{path});
    bool ok = false;
    const qint64 frames = output.trimmed().toLongLong(&ok);
    return ok ? frames : -1;
}

namespace {

// What the program prints on standard output, as bytes (the text may be UTF-8 whatever the
// locale says).
QByteArray outputOf(const QString& program, const QStringList& arguments) {
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(program, arguments);
    if (!process.waitForFinished(120000))
        return {};
    return process.readAllStandardOutput();
}

}  // namespace

QByteArray TestMovies::payloadDigest(const QString& path) const {
    return outputOf(ffmpeg_, QStringLiteral("-v error -i %1 -map 0 -c copy -f md5 -")
                                 .split(u' ')
                                 .replaceInStrings(QStringLiteral("%1"), path));
}

QJsonObject TestMovies::tags(const QString& path) const {
    const QByteArray json = outputOf(
        ffprobe_, QStringLiteral("-v error -show_entries format_tags -of json").split(u' ') +
                      QStringList{path});
    return QJsonDocument::fromJson(json)[QStringLiteral("format")][QStringLiteral("tags")]
        .toObject();
}
