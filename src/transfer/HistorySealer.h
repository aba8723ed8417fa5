#pragma once
// Continues a complete copy's ASC MHL history with the transfer's generation: every file the
// copy holds, the card's files with the digests read back from the medium, the sidecars the
// transfer wrote hashed as they are. A history the card brought along is checked against what
// was read from the card. What copies leave out of a card is named in the generation's ignore
// patterns, so a check of the copy against the card's older generations doesn't miss it. Runs
// on the volume's worker thread.

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>
#include <vector>

#include "DigestContext.h"
#include "FileLayer.h"
#include "Status.h"
#include "TransferLedger.h"

class HistorySealer {
  public:
    struct Result {
        Status written;   // ok once the generation is written
        QString leftOut;  // what a written generation had to leave out
    };

    /// What a copy leaves out at the top of a card: a desktop's litter and the done-marker.
    static QStringList leftOutOfCopies();
    /// The history's patterns with what copies leave out added (each once, in order).
    static QStringList ignorePatterns(const QStringList& before);

    /// Files of the card whose digest, as the transfer read it, differs from the card's own
    /// history: the card itself is damaged. Kinds other than the transfer's are read again.
    static QStringList contradictions(FileLayer& layer, const TransferLedger& ledger,
                                      const QByteArray& card, DigestContext::Kind kind);
    /// Appends the transfer's generation, made at created, to the copy's history (made when
    /// missing).
    static Result seal(FileLayer& layer, const TransferLedger& ledger, const QByteArray& folder,
                       DigestContext::Kind kind, const QDateTime& created,
                       const QString& comment = {},
                       const std::vector<DigestContext::Kind>& also = {});
};
