#pragma once
// What a finished transfer did, as lines for a terminal: each destination complete or not, every
// file that failed with its reason, the links copied as links, and the verdict, which says how
// the copies were checked. Stateless.

#include <QString>
#include <QStringList>

class QVVolume;

class TransferSummary {
  public:
    /// At most this many failed files are named; the log has them all.
    static constexpr int kMostNamed = 50;

    /// "Destination: PATH" and its state per destination, then failures, interruption, links.
    /// A copy is called verified only for the checks its transfer ran.
    static QStringList lines(const QVVolume& volume);
    /// "verified, read back from the media (SIZE)", "verified, inline, ...", "copied, not
    /// verified (SIZE)", "NOT complete: WHY" or "FAILED: WHY"; SIZE is what each destination got.
    static QString verdict(QVVolume& volume);
};
