#pragma once
// Re-checks a copy's folder against its ASC MHL history, reading every recorded file back from
// its medium: recorded files missing or differing, files the history doesn't record. Paths are
// whole relative paths, so files of one name in different folders are told apart. Optionally
// seals what it found as a new generation. Runs on the caller's thread.

#include <QString>

#include "FileLayer.h"
#include "ManifestVerifier.h"
#include "Status.h"

class Clock;

class HistoryVerifier {
  public:
    /// A report as the manifest check gives, with how the seal went (ok when none was asked).
    struct Report : ManifestVerifier::Report {
        Status sealed;
    };

    /// manifestFound means a readable history. With seal, an in-place generation records each
    /// file as verified or failed (new files as original), stamped by clock.
    static Report verify(const QString& folder, bool seal, FileLayer& layer, const Clock& clock);
};
