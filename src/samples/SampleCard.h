#pragma once
// Makes sample camera cards in a folder, laid out as each camera writes them, for the demo
// and for tests. The same options always give the same bytes.

#include <QString>

#include "CardFormat.h"

class SampleCard {
  public:
    struct Options {
        /// Clips on the card, 1 to 999.
        int clips = 3;
        /// Size of each clip's main media file; audio and proxy files are fractions of it.
        qint64 clipBytes = 1 << 20;
        /// Seeds the pseudo-random media bytes; each file draws its own stream from it.
        quint32 seed = 1;
        /// Adds what a desktop leaves on a card: ".Trashes", ".DS_Store", "._A.MXF".
        bool hiddenFiles = true;
        /// Adds each clip's small metadata files (XML, thumbnails); index files are always made.
        bool sidecars = true;
    };

    /// make(format, root, Options()); a separate overload because a nested struct's member
    /// defaults can't feed a default argument inside the class.
    static bool make(CardFormat format, const QString& root);
    /// Creates root (missing or an empty folder) and fills it with a card that
    /// CardsweepVolumeChecker recognises as format. ARRI cards take their reel name from
    /// root's last component, which needs four or more characters. On failure returns false
    /// with the reason in *error (when given) and removes what it made.
    static bool make(CardFormat format, const QString& root, const Options& options,
                     QString* error = nullptr);

    /// A card name typical for the format, four or more characters, usable as root's last
    /// component; empty for Unknown.
    static QString folderName(CardFormat format);
};
