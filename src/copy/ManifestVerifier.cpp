#include "ManifestVerifier.h"

#include <sys/stat.h>

#include <QHash>
#include <algorithm>
#include <cerrno>
#include <map>
#include <optional>
#include <vector>

#include "AscMhlHistory.h"
#include "ChecksumManifest.h"
#include "DigestContext.h"
#include "PathText.h"
#include "VerificationScope.h"

namespace {

void walk(FileLayer& layer, const QByteArray& folder, const QByteArray& relative,
          const ManifestVerifier::FileVisitor& visit) {
    std::vector<FileLayer::Entry> entries;
    if (layer.listFolder(folder + relative, &entries) != 0)
        return;
    for (const FileLayer::Entry& entry : entries) {
        const QByteArray path = relative + '/' + entry.name;
        struct stat status {};
        if (layer.linkStatus(folder + path, &status) != 0)
            continue;
        if (relative.isEmpty() && VerificationScope::isOtherRecord(layer, folder, entry.name))
            continue;
        if (S_ISDIR(status.st_mode)) {
            walk(layer, folder, path, visit);
        } else if (S_ISREG(status.st_mode)) {
            visit(path, status);
        }
    }
}

// The kinds a digest of this length may be.
std::vector<DigestContext::Kind> kindsOfLength(qsizetype length) {
    std::vector<DigestContext::Kind> kinds;
    for (int k = 0; k < DigestContext::kKinds; ++k) {
        if (DigestContext::hexLength(DigestContext::Kind(k)) == length)
            kinds.push_back(DigestContext::Kind(k));
    }
    return kinds;
}

}  // namespace

void ManifestVerifier::forEachFile(FileLayer& layer, const QByteArray& folder,
                                   const FileVisitor& visit) {
    walk(layer, folder, {}, visit);
}

Result<std::vector<QString>> ManifestVerifier::digestsFromMedium(
    FileLayer& layer, const QByteArray& path, const std::vector<DigestContext::Kind>& kinds) {
    const int fd = layer.openRead(path);
    if (fd < 0)
        return Status::fromErrno(QStringLiteral("open"), path, errno);
    layer.flushData(fd);
    layer.dropCache(fd, 0, 0);
    std::vector<DigestContext> digests(kinds.begin(), kinds.end());
    std::vector<char> buffer(1 << 20);
    bool failed = false;
    int code = 0;
    for (off_t offset = 0;;) {
        const ssize_t n = layer.read(fd, buffer.data(), buffer.size(), offset);
        if (n <= 0) {
            failed = n < 0;
            code = errno;
            break;
        }
        for (DigestContext& digest : digests)
            digest.update(buffer.data(), std::size_t(n));
        offset += n;
    }
    layer.dropCache(fd, 0, 0);
    layer.close(fd);
    if (failed)
        return Status::fromErrno(QStringLiteral("read"), path, code);
    std::vector<QString> texts;
    for (const DigestContext& digest : digests)
        texts.push_back(digest.hexDigest());
    return texts;
}

ManifestVerifier::Report ManifestVerifier::verify(const QString& folderText, FileLayer& layer) {
    Report report;
    const QByteArray folder = PathText::bytes(folderText);
    const QByteArray manifestName = ChecksumManifest::find(layer, folder);
    const std::optional<QByteArray> manifest = ChecksumManifest::read(layer, folder);
    if (!manifest)
        return report;
    const QByteArray& text = *manifest;
    report.manifestFound = true;

    // Every file by name (the manifest knows only names), with its path from the top.
    std::multimap<QByteArray, QByteArray> files;
    forEachFile(layer, folder, [&](const QByteArray& path, const struct stat&) {
        files.emplace(path.mid(path.lastIndexOf('/') + 1), path);
    });
    QHash<QByteArray, bool> listed;
    int number = 0;
    for (const QByteArray& raw : text.split('\n')) {
        ++number;
        if (raw.isEmpty())
            continue;
        const std::optional<ChecksumManifest::Line> line = ChecksumManifest::decode(raw);
        if (!line) {
            report.unreadable << QStringLiteral("line %1").arg(number);
            continue;
        }
        const QString shown = PathText::display(line->name);
        if (line->digest == ChecksumManifest::kIncomplete) {
            report.incomplete << shown;
            continue;
        }
        listed.insert(line->name, true);
        if (line->digest == ChecksumManifest::kFailed) {
            report.failed << shown;
            continue;
        }
        const auto [first, last] = files.equal_range(line->name);
        if (first == last) {
            report.missing << shown;
            continue;
        }
        // Files of one name share a line. When one of them doesn't match it, which one it
        // meant is unknown: that one may be damaged or just another file.
        const QString expected = QString::fromLatin1(line->digest).toLower();
        QStringList unmatched;
        for (auto it = first; it != last; ++it) {
            const auto digests =
                digestsFromMedium(layer, folder + it->second, kindsOfLength(line->digest.size()));
            if (!digests || std::find(digests->begin(), digests->end(), expected) == digests->end())
                unmatched << PathText::display(it->second.mid(1));
        }
        if (std::next(first) == last) {
            ++report.checked;
            if (!unmatched.isEmpty())
                report.differing << shown;
        } else if (unmatched.isEmpty()) {
            report.checked += int(std::distance(first, last));
        } else {
            for (auto it = first; it != last; ++it)
                report.ambiguous << PathText::display(it->second.mid(1));
        }
    }
    // Hidden files are listed when the copy brought them; others (a file manager's) are no
    // extra, nor is what the transfer adds at the top.
    for (const auto& [name, path] : files) {
        const bool top = path.count('/') == 1;
        if (listed.contains(name) || VerificationScope::isHidden(name))
            continue;
        if (top && VerificationScope::isSidecar(name, manifestName))
            continue;
        report.extra << PathText::display(path.mid(1));
    }
    return report;
}
