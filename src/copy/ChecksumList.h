#pragma once
// The copy's digests in the format of the standard tools (md5sum, sha1sum, xxhsum), so a crew
// can run "md5sum -c checksums.md5" in the copy's folder: one "digest  relative/path" line per
// file, named after the digest kind. A file that failed on this destination, and a transfer
// that never reached the end of the card, get a line those tools can't pass, so the check
// fails for a copy that isn't complete and verified. Stateless.

#include <QByteArray>
#include <QString>
#include <functional>

#include "DigestContext.h"
#include "FileLayer.h"
#include "Status.h"

class TransferLedger;

class ChecksumList {
  public:
    /// "checksums.md5", "checksums.sha1", "checksums.xxh64", "checksums.xxh3", "checksums.xxh128".
    static QByteArray fileName(DigestContext::Kind kind);
    /// One of the names above: a transfer's sidecar at the top of a copy.
    static bool isListName(const QByteArray& name);

    /// One line, line feed included; path relative to the copy's folder, without a leading "/".
    /// md5sum and sha1sum read a backslash or a newline escaped; xxhsum reads names as they are
    /// and has no way to write a newline, so such a line names a path that can't exist.
    static QByteArray line(DigestContext::Kind kind, const QByteArray& digest,
                           const QByteArray& path);
    /// A digest no file has: the line of a file that failed.
    static QByteArray failedDigest(DigestContext::Kind kind);

    /// The destination's lines in the order files were copied; a path recorded twice once.
    static void lines(const TransferLedger& ledger, std::size_t destination,
                      DigestContext::Kind kind, const std::function<void(const QByteArray&)>& out);

    /// Writes the destination's list into folder, whole or absent, unless the card brought a
    /// file of that name (which is its own and never replaced).
    static Status write(FileLayer& layer, const TransferLedger& ledger, std::size_t destination,
                        const QByteArray& folder, DigestContext::Kind kind);
};
