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
    static QStringList lines(const QVVolume& volume, bool fromMedium);
    /// "verified, read back from the media (SIZE)", "verified, inline, ..." or "FAILED: WHY".
    /// A disk image is read back only when checksum verification is on (imagesChecked).
    static QString verdict(QVVolume& volume, bool fromMedium, bool imagesChecked = true);
};
