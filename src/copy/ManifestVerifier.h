#pragma once
// Re-checks a destination folder against its "checksums.txt": every listed file is read back
// and its digest compared; files missing from the folder or from the manifest are reported.

#include <QString>
#include <QStringList>

class ManifestVerifier {
  public:
    struct Report {
        bool manifestFound = false;
        int checked = 0;
        QStringList missing;    // listed, not in the folder
        QStringList differing;  // listed, digest differs
        QStringList extra;      // in the folder, not listed (relative paths)
        bool ok() const {
            return manifestFound && missing.isEmpty() && differing.isEmpty() && extra.isEmpty();
        }
    };

    /// Reads folder/checksums.txt ("digest TAB name" lines, MD5 or SHA-1 by length). The
    /// manifest and archives are left out; an unlisted hidden file is not reported.
    static Report verify(const QString& folder);
};
