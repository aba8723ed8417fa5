#pragma once
// Re-checks a copy's folder against its ASC MHL history, reading every recorded file back from
// its medium: recorded files missing or differing, files the history doesn't record. Paths are
// whole relative paths, so files of one name in different folders are told apart. Optionally
// seals what it found as a new generation. Runs on the caller's thread.

#include <QString>

#include "FileLayer.h"
#include "ManifestVerifier.h"

class Clock;

class HistoryVerifier {
  public:
    /// A report as the manifest check gives; manifestFound means a readable history. With
    /// seal, an in-place generation records each file as verified or failed (new files as
    /// original), stamped by clock; sealError is set when it can't be written.
    static ManifestVerifier::Report verify(const QString& folder, bool seal, QString* sealError,
                                           FileLayer& layer, const Clock& clock);
};
