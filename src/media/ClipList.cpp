#include "ClipList.h"

#include <QDir>
#include <QFileInfo>

#include "LocalPaths.h"
#include "ProcessRunner.h"
#include "QVAppleEvents.h"
#include "QVFormat.h"
#include "QVLog.h"
#include "QVQuickTime.h"
#include "TextValues.h"

namespace {

const QString kHeader = QStringLiteral(
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?><!DOCTYPE xmeml><xmeml version=\"%i\">");
const QString kClip = QStringLiteral(
    "<clip id =\"%@\"><name>%@</name><duration>%i</duration><rate><ntsc>%@</ntsc>"
    "<timebase>%i</timebase></rate><file id=\"%@1\"><name>%@1</name>"
    "<pathurl>file://localhost%@</pathurl><rate><timebase>%i</timebase><ntsc>%@</ntsc>"
    "</rate><duration>%i</duration></file></clip>");

bool isDestinationMovie(const QFileInfo& info) {
    const QString extension = info.suffix().toLower();
    return extension == u"mov" || extension == u"qt" || extension == u"mp4" || extension == u"m4v";
}

// Letters, digits and the URL's own punctuation ('#' included) stand as they are; anything
// else, '%' and blanks among it, is escaped.
bool staysInURL(char c) {
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'))
        return true;
    return QByteArrayView("!$&'()*+,-./:;=?@_~#").contains(c);
}

}  // namespace

ClipList::ClipList(const SettingsStore& settings, ProcessRunner& processes, QString toolPath)
    : settings_(settings),
      processes_(processes),
      toolPath_(toolPath.isEmpty() ? defaultToolPath() : std::move(toolPath)) {}

QString ClipList::defaultToolPath() {
    return LocalPaths::helperProgram(QStringLiteral("QTTimecodeTool"));
}

QStringList ClipList::qtMoviesInFolder(const QString& folder) {
    QStringList movies;
    const QStringList names = QDir(folder).entryList(
        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Unsorted);
    for (const QString& name : names) {
        const QString entry = QDir(folder).filePath(name);
        const QFileInfo info(entry);
        if (info.isDir() && !info.isSymLink())
            movies += qtMoviesInFolder(entry);
        else if (isDestinationMovie(info))
            movies << entry;
    }
    return movies;
}

QString ClipList::xmlForClips(const QStringList& moviePaths) const {
    const int version = QVAppleEvents(settings_, processes_).maximumXMEMLVersion();
    QString xml = QVFormat::format(kHeader, version);
    for (const QString& path : moviePaths) {
        const QString name = clipName(path);
        const qint64 duration = frameCountForMovie(path);
        const QTMovie::Timing timing = timingForMovie(path);
        const QString ntsc = timing.ntsc ? QStringLiteral("TRUE") : QStringLiteral("FALSE");
        const QString pathURL = percentEscapedPath(path);
        xml += QVFormat::format(kClip, name, name, duration, ntsc, timing.timebase, name, name,
                                pathURL, timing.timebase, ntsc, duration);
    }
    xml += QStringLiteral("</xmeml>");
    return xml;
}

QTMovie::Timing ClipList::timingForMovie(const QString& moviePath) const {
    const QString output = QString::fromLocal8Bit(
        processes_.run(toolPath_, QStringList{moviePath, QStringLiteral("-timing")}).output);
    const QTMovie::Timing timing = timingFromToolOutput(output);
    QVLog::appendLog(u"timebase: %i, ntsc: %i, dropframe: %i", timing.timebase, timing.ntsc ? 1 : 0,
                     timing.dropFrame ? 1 : 0);
    return timing;
}

QTMovie::Timing ClipList::timingFromToolOutput(const QString& output) {
    const QStringList parts = output.split(u' ');
    if (parts.size() != 3)
        return {};
    QTMovie::Timing timing;
    timing.timebase = TextValues::intValue(parts[0]);
    timing.ntsc = TextValues::boolValue(parts[1]);
    timing.dropFrame = TextValues::boolValue(parts[2]);
    return timing;
}

qint64 ClipList::frameCountForMovie(const QString& moviePath) {
    // A movie that cannot be opened counts as duration 0.
    const std::unique_ptr<QTMovie> movie = QTMovie::open(moviePath);
    if (!movie)
        return 0;
    return QVQuickTime::frameCountForQTTime(movie->duration(), movie.get());
}

QString ClipList::percentEscapedPath(const QString& path) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    QString escaped;
    for (const char c : path.toUtf8()) {
        if (staysInURL(c)) {
            escaped += QLatin1Char(c);
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        escaped += u'%';
        escaped += QLatin1Char(kHex[byte >> 4]);
        escaped += QLatin1Char(kHex[byte & 0x0F]);
    }
    return escaped;
}

QString ClipList::clipName(const QString& moviePath) {
    const QString file = QFileInfo(moviePath).fileName();
    const qsizetype dot = file.lastIndexOf(u'.');
    return dot > 0 ? file.left(dot) : file;
}
