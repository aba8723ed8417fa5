#pragma once
// Writes QuickTime metadata ("mdta" keys in moov/meta) into a movie in place: the media data is
// never moved or rewritten. A new movie header that fits where the old one stood (with free
// space after it) replaces it there; otherwise it goes to the end of the file and the old one
// becomes free space, so every chunk offset stays valid. Every size read from the file is
// checked against its container: cards can hold damaged files, and a file that isn't a whole
// movie is left byte for byte as it was. One call at a time per file.

#include <QByteArray>
#include <QString>
#include <utility>
#include <vector>

#include "Result.h"
#include "Status.h"

class QTMetadataWriter {
  public:
    using Pairs = std::vector<std::pair<QByteArray, QByteArray>>;

    /// The pairs of a text of the form "key"="value";"key"="value"; in order; where it goes
    /// wrong when the text is not of that form.
    static Result<Pairs> parsePairs(const QByteArray& text);
    /// Sets each key to its value (existing keys replaced, others kept). On failure the file is
    /// unchanged.
    static Status write(const QString& moviePath, const Pairs& pairs);
    /// The movie's mdta keys and values, in the file's order (empty when none or unreadable).
    static Pairs read(const QString& moviePath);
};
