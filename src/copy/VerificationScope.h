#pragma once
// What a check of a copy looks at: the one rule for the verification after a transfer and for
// `verify` of a folder later. At the top of a copy, the history folder and a later transfer's
// numbered copy are not this copy's files at all; the manifest, the lists for the standard
// checksum tools, the report and the archives are the transfer's own sidecars, never extra;
// hidden entries are never extra either. Safe from any thread.

#include <QByteArray>

class FileLayer;

class VerificationScope {
  public:
    /// Hidden entries (a file manager's litter among them).
    static bool isHidden(const QByteArray& name) { return name.startsWith('.'); }
    /// At the top of folder: the history, or another transfer's copy reserved inside this one.
    static bool isOtherRecord(FileLayer& layer, const QByteArray& folder, const QByteArray& name);
    /// At the top: what the transfer writes beside the card's files.
    static bool isSidecar(const QByteArray& name, const QByteArray& manifestName);
};
