#include "ChecksumList.h"

#include <QHash>
#include <set>
#include <vector>

#include "StreamedFile.h"
#include "TransferLedger.h"

namespace {

constexpr const char* kPrefix = "checksums.";
// Names no card file has: the check of such a line can only fail.
constexpr const char* kIncompletePath =
    "INCOMPLETE: the transfer stopped before the end of the card";
constexpr const char* kUnwritablePath = "FAILED: a name this list can't hold, see checksums.txt";

QByteArray extension(DigestContext::Kind kind) {
    switch (kind) {
        case DigestContext::Kind::MD5:
            return "md5";
        case DigestContext::Kind::SHA1:
            return "sha1";
        case DigestContext::Kind::XXH64:
            return "xxh64";
        case DigestContext::Kind::XXH3:
            return "xxh3";
        case DigestContext::Kind::XXH128:
            return "xxh128";
    }
    return "sum";
}

bool isCoreutilsKind(DigestContext::Kind kind) {
    return kind == DigestContext::Kind::MD5 || kind == DigestContext::Kind::SHA1;
}

// As md5sum writes it: a backslash and a newline escaped, the line marked with a backslash.
QByteArray escaped(const QByteArray& path) {
    QByteArray out;
    out.reserve(path.size() + 4);
    for (const char c : path) {
        if (c == '\\')
            out += "\\\\";
        else if (c == '\n')
            out += "\\n";
        else
            out += c;
    }
    return out;
}

}  // namespace

QByteArray ChecksumList::fileName(DigestContext::Kind kind) {
    return kPrefix + extension(kind);
}

bool ChecksumList::isListName(const QByteArray& name) {
    for (int k = 0; k < DigestContext::kKinds; ++k) {
        if (name == fileName(DigestContext::Kind(k)))
            return true;
    }
    return false;
}

QByteArray ChecksumList::failedDigest(DigestContext::Kind kind) {
    return QByteArray(DigestContext::hexLength(kind), '0');
}

QByteArray ChecksumList::line(DigestContext::Kind kind, const QByteArray& digest,
                              const QByteArray& path) {
    const bool special = path.contains('\\') || path.contains('\n');
    if (isCoreutilsKind(kind))
        return special ? '\\' + digest + "  " + escaped(path) + '\n' : digest + "  " + path + '\n';
    if (path.contains('\n'))
        return line(kind, failedDigest(kind), kUnwritablePath);
    if (kind == DigestContext::Kind::XXH3)
        return "XXH3 (" + path + ") = " + digest + '\n';
    return digest + "  " + path + '\n';
}

void ChecksumList::lines(const TransferLedger& ledger, std::size_t destination,
                         DigestContext::Kind kind,
                         const std::function<void(const QByteArray&)>& out) {
    std::set<QByteArray> failed;  // ordered: the list reads the same each time it is written
    for (const auto& failures : {ledger.failures(), ledger.damaged()}) {
        for (const TransferLedger::Failure& failure : failures) {
            if (failure.destination == TransferLedger::kAllDestinations ||
                failure.destination == int(destination))
                failed.insert(failure.path);
        }
    }
    // The last recording of a path is the one on the destination.
    std::vector<std::pair<QByteArray, QByteArray>> files;
    QHash<QByteArray, std::size_t> at;
    ledger.forEachFile([&](const QByteArray& path, std::uint64_t, const QByteArray& digest) {
        if (const auto found = at.constFind(path); found != at.cend()) {
            files[*found].second = digest;
            return;
        }
        at.insert(path, files.size());
        files.emplace_back(path, digest);
    });
    for (const auto& [path, digest] : files)
        out(line(kind, failed.count(path) ? failedDigest(kind) : digest, path.mid(1)));
    for (const QByteArray& path : failed) {
        if (!at.contains(path))
            out(line(kind, failedDigest(kind), path.mid(1)));
    }
    if (ledger.interruption())
        out(line(kind, failedDigest(kind), kIncompletePath));
}

Status ChecksumList::write(FileLayer& layer, const TransferLedger& ledger, std::size_t destination,
                           const QByteArray& folder, DigestContext::Kind kind) {
    const QByteArray name = fileName(kind);
    if (ledger.fileAt('/' + name))
        return {};
    StreamedFile file(layer, folder + '/' + name);
    lines(ledger, destination, kind, [&](const QByteArray& text) { file.append(text); });
    return file.commit();
}
