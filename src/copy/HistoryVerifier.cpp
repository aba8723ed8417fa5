#include "HistoryVerifier.h"

#include <QDateTime>
#include <QDir>
#include <map>

#include "AscMhlHistory.h"
#include "Clock.h"
#include "PathText.h"

namespace {

// The file's hashes of every kind the entry records, compared; a file that can't be read
// differs.
bool matches(FileLayer& layer, const Clock& clock, const QByteArray& path,
             const AscMhlHistory::Entry& entry, std::vector<AscMhlHistory::Hash>* found) {
    std::vector<DigestContext::Kind> kinds;
    for (const AscMhlHistory::Hash& hash : entry.hashes)
        kinds.push_back(hash.kind);
    const auto digests = ManifestVerifier::digestsFromMedium(layer, path, kinds);
    bool same = digests.ok();
    const QDateTime now = clock.now();
    for (std::size_t i = 0; i < kinds.size(); ++i) {
        const bool equal = digests && (*digests)[i] == entry.hashes[i].hex;
        same = same && equal;
        found->push_back({kinds[i], digests ? (*digests)[i] : entry.hashes[i].hex,
                          equal ? QStringLiteral("verified") : QStringLiteral("failed"), now});
    }
    return same;
}

}  // namespace

HistoryVerifier::Report HistoryVerifier::verify(const QString& folderText, bool seal,
                                                FileLayer& layer, const Clock& clock) {
    Report report;
    // A generation is named after the folder, so "." is resolved to the name it stands for.
    const QByteArray folder = PathText::bytes(QDir::cleanPath(QDir(folderText).absolutePath()));
    AscMhlHistory history = AscMhlHistory::load(layer, folder);
    if (history.isEmpty())
        return report;
    report.manifestFound = true;
    if (!history.problem().ok())
        report.unreadable << history.problem().message();

    std::map<QByteArray, struct stat> files;
    ManifestVerifier::forEachFile(layer, folder, [&](const QByteArray& path, const struct stat& s) {
        files.emplace(path.mid(1), s);
    });
    AscMhlHistory::Generation sealed;
    sealed.process = QStringLiteral("in-place");
    sealed.created = clock.now();
    sealed.ignore = history.ignorePatterns();
    const std::map<QByteArray, AscMhlHistory::Entry> latest = history.latest();
    // New files are sealed with the kind the history already uses.
    const DigestContext::Kind kind =
        latest.empty() ? DigestContext::Kind::XXH64 : latest.begin()->second.hashes.front().kind;
    for (const auto& [path, entry] : latest) {
        // What the newest generation leaves out is neither checked nor missed.
        if (AscMhlHistory::isIgnored(sealed.ignore, path))
            continue;
        const auto file = files.find(path);
        if (file == files.end()) {
            report.missing << QString::fromUtf8(path);
            continue;
        }
        ++report.checked;
        AscMhlHistory::Entry now{path,
                                 std::uint64_t(file->second.st_size),
                                 AscMhlHistory::modificationTime(file->second),
                                 {}};
        if (!matches(layer, clock, folder + '/' + path, entry, &now.hashes))
            report.differing << QString::fromUtf8(path);
        sealed.entries.push_back(std::move(now));
        files.erase(file);
    }
    for (const auto& [path, status] : files) {
        if (path.endsWith(".DS_Store") || AscMhlHistory::isIgnored(sealed.ignore, path))
            continue;
        report.extra << PathText::display(path);
        if (!seal || !PathText::isValidUtf8(path))
            continue;
        const auto digest = ManifestVerifier::digestsFromMedium(layer, folder + '/' + path, {kind});
        if (digest)
            sealed.entries.push_back(
                {path,
                 std::uint64_t(status.st_size),
                 AscMhlHistory::modificationTime(status),
                 {{kind, digest->front(), QStringLiteral("original"), sealed.created}}});
    }
    if (seal)
        report.sealed = history.append(layer, folder, std::move(sealed));
    return report;
}
