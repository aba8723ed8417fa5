#pragma once
// Re-checks a destination folder against its manifest, reading every listed file back from its
// medium: listed files missing or differing, files nobody listed, and what the manifest itself
// says failed or never arrived. A later copy of a card placed inside this one (a numbered
// folder with a manifest of its own) is left out. Runs on the caller's thread.

#include <QString>
#include <QStringList>
#include <functional>
#include <vector>

#include "DigestContext.h"
#include "FileLayer.h"
#include "Result.h"

class ManifestVerifier {
  public:
    struct Report {
        bool manifestFound = false;
        int checked = 0;
        QStringList missing;     // listed, not in the folder
        QStringList differing;   // listed, digest differs (or can't be read)
        QStringList extra;       // in the folder, not listed (relative paths)
        QStringList failed;      // listed as failed by the transfer that wrote it
        QStringList incomplete;  // the transfer's reason for stopping short
        QStringList unreadable;  // lines that aren't manifest lines
        QStringList ambiguous;   // one line, several files of its name: which it means is unknown
        bool ok() const {
            return manifestFound && missing.isEmpty() && differing.isEmpty() && extra.isEmpty() &&
                   failed.isEmpty() && incomplete.isEmpty() && unreadable.isEmpty() &&
                   ambiguous.isEmpty();
        }
    };

    /// Reads the folder's manifest ("digest TAB name" lines; the digest's kind told by its
    /// length, both candidates computed where two kinds share one). The manifest, archives and
    /// the history folder are left out; an unlisted hidden file is not reported.
    static Report verify(const QString& folder, FileLayer& layer);

    /// Every regular file below a copy's folder ("/" and its path from the top) with what lstat
    /// said of it; its history folder and later copies nested at the top are not the copy's.
    using FileVisitor = std::function<void(const QByteArray& path, const struct stat& status)>;
    static void forEachFile(FileLayer& layer, const QByteArray& folder, const FileVisitor& visit);

    /// The file's digests as its medium holds it (flushed, cached pages dropped, read back),
    /// one per kind, from one read; the failure when it can't be read.
    static Result<std::vector<QString>> digestsFromMedium(
        FileLayer& layer, const QByteArray& path, const std::vector<DigestContext::Kind>& kinds);
};
