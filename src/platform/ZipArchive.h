#pragma once
// Zip archives of a card or of gathered logs, written and read through libarchive, so the
// archives open anywhere and large clips get Zip64 entries.

#include <QString>

class ZipArchive {
  public:
    /// Writes the file or folder at `source` into a zip at destinationFile. With
    /// includeParent the entries sit under the source's own name ("CARD/CLIP/a.mov"),
    /// otherwise relative to it ("CLIP/a.mov"; a single file by its name). Keeps folders,
    /// files (read in chunks), symlinks as links, POSIX modes and modification times;
    /// other kinds of file (devices, pipes, sockets) are skipped with a log line. The zip
    /// grows under a temporary name beside the destination and is renamed into place when
    /// complete, so the final name never holds a partial archive. False with the libarchive
    /// error logged otherwise, and then nothing is left under either name.
    static bool compress(const QString& source, const QString& destinationFile, bool includeParent);

    /// Extracts the zip into destinationFolder (created when needed), keeping modes and
    /// modification times. Entries that are absolute, climb out with "..", or would be
    /// written through a symlink are refused: extraction stops there and reports false
    /// (logged), as it does for a damaged archive; entries already written stay.
    static bool extract(const QString& archiveFile, const QString& destinationFolder);
};
