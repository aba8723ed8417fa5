#pragma once
// The checksum manifest at the top of each destination folder: one "digest TAB name" line per
// file. A name that can't stand on one line as UTF-8 (a newline, a backslash, bytes that aren't
// UTF-8) is written escaped, as md5sum does: the line starts with a backslash and the name uses
// \\, \n, \r and \xHH. A copy that isn't complete and verified says so in its manifest: FAILED
// in place of a digest for each file that failed, and one INCOMPLETE line when the rest of the
// card never arrived; such a manifest can never pass a check. Stateless.

#include <QByteArray>
#include <QString>
#include <optional>

#include "FileLayer.h"
#include "Status.h"

class ChecksumManifest {
  public:
    static inline const QByteArray kFailed = QByteArrayLiteral("FAILED");
    static inline const QByteArray kIncomplete = QByteArrayLiteral("INCOMPLETE");

    struct Line {
        QByteArray digest;  // lower-case hex, kFailed or kIncomplete
        QByteArray name;    // the file's name as bytes (the reason, on an INCOMPLETE line)
    };

    /// One line, line feed included.
    static QByteArray encode(const Line& line);
    /// A line without its line feed; nullopt when it isn't one of ours.
    static std::optional<Line> decode(QByteArray line);

    /// The manifest's name in the destination folder: CardFiles::kManifest unless something other
    /// than a manifest of ours already sits there.
    static QByteArray nameFor(FileLayer& layer, const QByteArray& folder);
    /// The manifest a check should read in a folder: the alternate name when present.
    static QByteArray find(FileLayer& layer, const QByteArray& folder);

    /// The text of the manifest a check should read in the folder; nullopt when there is none.
    static std::optional<QByteArray> read(FileLayer& layer, const QByteArray& folder);

    /// A name reservation gives a later copy inside an existing folder: "0001", "0002.dmg".
    static bool isReservationNumber(const QByteArray& name);
    /// An entry at the top of a destination folder that is a later transfer's copy placed inside
    /// this one (a numbered folder holding a manifest, or a numbered image): not this copy's.
    static bool isLaterCopy(FileLayer& layer, const QByteArray& folder, const QByteArray& name);

    /// Writes the manifest so it is whole or absent: a temporary file, flushed to the medium
    /// and read back, then renamed into place (replacing an older one).
    static Status write(FileLayer& layer, const QByteArray& path, const QByteArray& contents);
};
