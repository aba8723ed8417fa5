#pragma once
// Re-checks a destination folder against its manifest, reading every listed file back from its
// medium: listed files missing or differing, files nobody listed, and what the manifest itself
// says failed or never arrived. A later copy of a card placed inside this one (a numbered
// folder with a manifest of its own) is left out. Runs on the caller's thread.

#include <QString>
#include <QStringList>

#include "FileLayer.h"

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
        bool ok() const {
            return manifestFound && missing.isEmpty() && differing.isEmpty() && extra.isEmpty() &&
                   failed.isEmpty() && incomplete.isEmpty() && unreadable.isEmpty();
        }
    };

    /// Reads the folder's manifest ("digest TAB name" lines, MD5 or SHA-1 by length). The
    /// manifest and archives are left out; an unlisted hidden file is not reported.
    static Report verify(const QString& folder, FileLayer& layer = FileLayer::posix());
};
