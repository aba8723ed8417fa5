#include "HistorySealer.h"

#include <QDateTime>
#include <unordered_map>

#include "AscMhlHistory.h"
#include "ManifestVerifier.h"
#include "PathText.h"

namespace {

struct Copied {
    std::uint64_t size;
    QString digest;
};

QDateTime modificationTime(const struct stat& status) {
    return QDateTime::fromMSecsSinceEpoch(
        qint64(status.st_mtim.tv_sec) * 1000 + status.st_mtim.tv_nsec / 1000000, Qt::UTC);
}

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

QStringList HistorySealer::contradictions(FileLayer& layer, const TransferLedger& ledger,
                                          const QByteArray& card, DigestContext::Kind kind) {
    QString error;
    const AscMhlHistory history = AscMhlHistory::load(layer, card, &error);
    if (history.isEmpty())
        return {};
    std::unordered_map<QByteArray, QString> copied;
    ledger.forEachFile([&](const QByteArray& path, std::uint64_t, const QByteArray& digest) {
        copied[path.mid(1)] = QString::fromLatin1(digest);
    });
    QStringList damaged;
    for (const auto& [path, entry] : history.latest()) {
        const auto found = copied.find(path);
        if (found == copied.end())
            continue;  // not copied: its failure is named already
        for (const AscMhlHistory::Hash& hash : entry.hashes) {
            QString digest = found->second;
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
                                          const QString& comment) {
    Result result;
    AscMhlHistory history = AscMhlHistory::load(layer, folder, &result.error);
    if (!result.error.isEmpty())
        return result;
    const std::map<QByteArray, AscMhlHistory::Entry> before = history.latest();

    std::unordered_map<QByteArray, Copied> copied;
    ledger.forEachFile([&](const QByteArray& path, std::uint64_t size, const QByteArray& digest) {
        copied[path.mid(1)] = {size, QString::fromLatin1(digest)};
    });

    AscMhlHistory::Generation generation;
    generation.created = QDateTime::currentDateTimeUtc();
    generation.comment = comment;
    QStringList unnamed;
    ManifestVerifier::forEachFile(
        layer, folder, [&](const QByteArray& relative, const struct stat& status) {
            const QByteArray path = relative.mid(1);
            if (!PathText::isValidUtf8(path)) {
                unnamed << PathText::display(path);
                return;
            }
            QString digest;
            if (const auto found = copied.find(path); found != copied.end()) {
                digest = found->second.digest;
            } else if (const auto read =
                           ManifestVerifier::digestsFromMedium(layer, folder + relative, {kind})) {
                digest = read->front();  // a sidecar of this transfer
            } else {
                result.error = QStringLiteral("%1 can't be read").arg(PathText::display(path));
                return;
            }
            AscMhlHistory::Entry entry{
                path,
                std::uint64_t(status.st_size),
                modificationTime(status),
                {{kind, digest, actionFor(before, path, kind, digest), generation.created}}};
            generation.entries.push_back(std::move(entry));
        });
    if (!unnamed.isEmpty())
        result.error = QStringLiteral("names that aren't UTF-8 can't be recorded: %1")
                           .arg(unnamed.join(QStringLiteral(", ")));
    if (!result.error.isEmpty())
        return result;
    result.written = history.append(layer, folder, std::move(generation), &result.error);
    return result;
}
