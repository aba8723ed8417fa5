#pragma once
// Digests of whole files read from disk, as lower-case hex text; the same text the copy engine
// produces for the same bytes through DigestContext.

#include <QString>
#include <cstdint>
#include <functional>

#include "DigestContext.h"
#include "FileLayer.h"
#include "Result.h"

/// Receives the number of bytes read since the last report.
using FileHashProgress = std::function<void(std::uint64_t bytesSinceLastReport)>;

/// Reads the file in chunks of chunkSize bytes (0 means 4096) and returns its MD5, or the
/// failure when it can't be opened or a read fails. With a progress callback, a report follows each
/// read unless the unreported count is an exact multiple of 150 MiB (then it is carried on),
/// and one last report covers what is left, also after a read error. An empty file gives no
/// report. Reads go through `files` (tests hand in a faulty layer).
Result<QString> FileMD5HashCreateWithPath(const QString& path, std::size_t chunkSize,
                                          const FileHashProgress& progress, FileLayer& files);

/// As FileMD5HashCreateWithPath, with any digest.
Result<QString> FileHashCreateWithPath(DigestContext::Kind kind, const QString& path,
                                       std::size_t chunkSize, const FileHashProgress& progress,
                                       FileLayer& files);

/// As FileMD5HashCreateWithPath, with SHA-1.
Result<QString> FileSHA1HashCreateWithPath(const QString& path, std::size_t chunkSize,
                                           const FileHashProgress& progress, FileLayer& files);
