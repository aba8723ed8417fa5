#pragma once
// The names a transfer gives meaning to, in one place: the system litter a copy leaves out of a
// card, the marker it leaves on one, and the files it puts beside each copy. Constants only;
// safe from any thread.

#include <QByteArray>
#include <QList>

class CardFiles {
  public:
    /// What desktops leave at the top of a card; never copied, counted or sealed.
    static inline const QList<QByteArray> kSystemLitter = {
        QByteArrayLiteral(".DS_Store"), QByteArrayLiteral(".fseventsd"),
        QByteArrayLiteral(".Spotlight-V100"), QByteArrayLiteral(".TemporaryItems"),
        QByteArrayLiteral(".Trashes")};
    /// The file on a card that says it was offloaded.
    static inline const QByteArray kMarker = QByteArrayLiteral(".cardsweep");

    /// The checksum manifest at the top of each copy.
    static inline const QByteArray kManifest = QByteArrayLiteral("checksums.txt");
    /// Used in place of kManifest when the card itself carries a file of that name.
    static inline const QByteArray kAlternateManifest =
        QByteArrayLiteral("checksums (Cardsweep).txt");
    /// The transfer report beside the manifest; like it, not part of the copy.
    static inline const QByteArray kReport = QByteArrayLiteral("Transfer Report.html");
    /// The folder of a copy's ASC MHL history, and its chain file.
    static inline const QByteArray kHistoryFolder = QByteArrayLiteral("ascmhl");
    static inline const QByteArray kHistoryChain = QByteArrayLiteral("ascmhl_chain.xml");

    static bool isSystemLitter(const QByteArray& name) { return kSystemLitter.contains(name); }
};
