#pragma once
// Finds the movies in a destination folder and describes them in the xmeml clip list the
// editing application imports: one clip per movie with its length in frames and its
// timing as QTTimecodeTool reports it.
//
// Thread-safety: const operations may run on any thread; the tool runs on the caller's.

#include <QString>
#include <QStringList>

#include "QTMovie.h"
#include "SettingsStore.h"

class ProcessRunner;

class ClipList {
  public:
    /// `toolPath` is the QTTimecodeTool to run; empty means defaultToolPath().
    /// The timing tool runs through processes (toolPath empty: the one beside this program).
    ClipList(const SettingsStore& settings, ProcessRunner& processes, QString toolPath = QString());

    /// QTTimecodeTool beside the running executable.
    static QString defaultToolPath();
    QString toolPath() const { return toolPath_; }

    /// Files whose lower-cased extension is mov, qt, mp4 or m4v under `folder`, depth first
    /// in the order the listing gives; hidden entries included, symbolic links to folders
    /// not followed. A folder that cannot be listed adds nothing.
    static QStringList qtMoviesInFolder(const QString& folder);

    /// The xmeml document for the movies, in the given order. Names and paths are put in
    /// as they are (only the path is percent-escaped); the link escapes what it sends.
    QString xmlForClips(const QStringList& moviePaths) const;

    /// The tool's answer for one movie, logged; timebase 30 without NTSC or drop-frame
    /// when it prints nothing usable.
    QTMovie::Timing timingForMovie(const QString& moviePath) const;
    /// Reads "TIMEBASE NTSC DROPFRAME": exactly three parts split at single blanks.
    static QTMovie::Timing timingFromToolOutput(const QString& output);

    /// The movie's length in frames at its first video track's rate; 0 when it cannot be
    /// opened or has no video.
    static qint64 frameCountForMovie(const QString& moviePath);

    /// `path` with every character that may not stand in a URL as UTF-8 %XX ("/" stays).
    static QString percentEscapedPath(const QString& path);

    /// The file name without its last extension.
    static QString clipName(const QString& moviePath);

  private:
    const SettingsStore& settings_;
    ProcessRunner& processes_;
    QString toolPath_;
};
