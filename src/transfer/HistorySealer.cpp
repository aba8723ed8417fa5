#include "HistorySealer.h"

#include <QDateTime>

#include "AscMhlHistory.h"
#include "CardFiles.h"
#include "ManifestVerifier.h"
#include "PathText.h"

namespace {

// What an earlier generation says of this file in this kind: verified or failed against it,
// original when it never recorded the file (or not in this kind).
QString actionFor(const std::map<QByteArray, AscMhlHistory::Entry>& before, const QByteArray& path,
                  DigestContext::Kind kind, const QString& digest) {
    const auto found = before.find(path);
    if (found == before.end())
        return QStringLiteral("original");
    for (const AscMhlHistory::Hash& hash : found->second.hashes) {
        if (hash.kind == kind)
            return hash.hex == digest ? QStringLiteral("verified") : QStringLiteral("failed");
    }
    return QStringLiteral("original");
}

}  // namespace

QStringList HistorySealer::leftOutOfCopies() {
    QStringList names;
    for (const QByteArray& name : CardFiles::kSystemLitter)
        names << QString::fromLatin1(name);
    return names << QString::fromLatin1(CardFiles::kMarker);
}

QStringList HistorySealer::ignorePatterns(const QStringList& before) {
    QStringList patterns = before;
    for (const QString& name : leftOutOfCopies()) {
        if (!patterns.contains(name))
            patterns << name;
    }
    return patterns;
}

QStringList HistorySealer::contradictions(FileLayer& layer, const TransferLedger& ledger,
                                          const QByteArray& card, DigestContext::Kind kind) {
    // What of the card's history can be read is checked; an unreadable rest has nothing to say.
    const AscMhlHistory history = AscMhlHistory::load(layer, card);
    QStringList damaged;
    for (const auto& [path, entry] : history.latest()) {
        const auto copied = ledger.fileAt('/' + path);
        if (!copied)
            continue;  // not copied: its failure is named already
        for (const AscMhlHistory::Hash& hash : entry.hashes) {
            QString digest = QString::fromLatin1(copied->sourceDigest);
            if (hash.kind != kind) {
                const auto read =
                    ManifestVerifier::digestsFromMedium(layer, card + '/' + path, {hash.kind});
                digest = read ? read->front() : QString();
            }
            if (digest != hash.hex) {
                damaged << QString::fromUtf8(path);
                break;
            }
        }
    }
    return damaged;
}

HistorySealer::Result HistorySealer::seal(FileLayer& layer, const TransferLedger& ledger,
                                          const QByteArray& folder, DigestContext::Kind kind,
                                          const QDateTime& created, const QString& comment,
                                          const std::vector<DigestContext::Kind>& also) {
    Result result;
    AscMhlHistory history = AscMhlHistory::load(layer, folder);
    if (result.written = history.problem(); !result.written.ok())
        return result;
    // Every name must fit in the history before any of it is written.
    QStringList unnamed;
    ManifestVerifier::forEachFile(layer, folder, [&](const QByteArray& path, const struct stat&) {
        if (!AscMhlHistory::canHold(path.mid(1)))
            unnamed << PathText::display(path.mid(1));
    });
    if (!unnamed.isEmpty()) {
        result.written =
            Status::failure(QStringLiteral("%1 name(s) a history can't hold, such as %2")
                                .arg(unnamed.size())
                                .arg(unnamed.first()));
        return result;
    }

    const std::map<QByteArray, AscMhlHistory::Entry> before = history.latest();
    AscMhlHistory::Generation header;
    header.created = created;
    header.comment = comment;
    // A check reads only the newest generation's patterns: the card's own are carried on.
    header.ignore = ignorePatterns(history.ignorePatterns());
    std::vector<DigestContext::Kind> kinds{kind};
    kinds.insert(kinds.end(), also.begin(), also.end());
    QStringList unreadable;
    const auto entries = [&](const AscMhlHistory::EntrySink& sink) {
        ManifestVerifier::forEachFile(
            layer, folder, [&](const QByteArray& relative, const struct stat& status) {
                const QByteArray path = relative.mid(1);
                std::vector<QString> digests;  // kind, then also
                if (const auto copied = ledger.fileAt(relative)) {
                    digests.push_back(QString::fromLatin1(copied->sourceDigest));
                    for (const QByteArray& digest : copied->also)
                        digests.push_back(QString::fromLatin1(digest));
                } else if (const auto read = ManifestVerifier::digestsFromMedium(
                               layer, folder + relative, kinds)) {
                    digests = *read;  // a sidecar of this transfer
                } else {
                    unreadable << PathText::display(path);
                    return;
                }
                AscMhlHistory::Entry entry{path,
                                           std::uint64_t(status.st_size),
                                           AscMhlHistory::modificationTime(status),
                                           {}};
                for (std::size_t i = 0; i < digests.size() && i < kinds.size(); ++i)
                    entry.hashes.push_back({kinds[i], digests[i],
                                            actionFor(before, path, kinds[i], digests[i]),
                                            header.created});
                sink(entry);
            });
    };
    result.written = history.append(layer, folder, header, entries);
    if (result.written.ok() && !unreadable.isEmpty())
        result.leftOut =
            QStringLiteral("left out, can't be read: ") + unreadable.join(QStringLiteral(", "));
    return result;
}
