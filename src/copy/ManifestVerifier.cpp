#include "ManifestVerifier.h"

#include <sys/stat.h>

#include <QHash>
#include <map>
#include <optional>
#include <vector>

#include "ChecksumManifest.h"
#include "DigestContext.h"
#include "PathText.h"

namespace {

bool isArchive(const QByteArray& name) {
    return name.endsWith(" Archive.dmg") || name.endsWith(" Archive.zip");
}

// Every regular file below the folder by name (the manifest knows only names), with its path
// relative to the top. A later copy nested at the top is not this copy's.
void collect(FileLayer& layer, const QByteArray& folder, const QByteArray& relative,
             std::multimap<QByteArray, QByteArray>& files) {
    std::vector<FileLayer::Entry> entries;
    if (layer.listFolder(folder + relative, &entries) != 0)
        return;
    for (const FileLayer::Entry& entry : entries) {
        const QByteArray path = relative + '/' + entry.name;
        struct stat status {};
        if (layer.linkStatus(folder + path, &status) != 0)
            continue;
        if (relative.isEmpty() && ChecksumManifest::isLaterCopy(layer, folder, entry.name))
            continue;
        if (S_ISDIR(status.st_mode)) {
            collect(layer, folder, path, files);
        } else if (S_ISREG(status.st_mode)) {
            files.emplace(entry.name, path);
        }
    }
}

// The file's digest as its medium holds it: flushed, its cached pages dropped, read back.
std::optional<QString> digestFromMedium(FileLayer& layer, const QByteArray& path,
                                        DigestContext::Kind kind) {
    const int fd = layer.openRead(path);
    if (fd < 0)
        return std::nullopt;
    layer.flushData(fd);
    layer.dropCache(fd, 0, 0);
    DigestContext digest(kind);
    std::vector<char> buffer(1 << 20);
    bool failed = false;
    for (off_t offset = 0;;) {
        const ssize_t n = layer.read(fd, buffer.data(), buffer.size(), offset);
        if (n <= 0) {
            failed = n < 0;
            break;
        }
        digest.update(buffer.data(), std::size_t(n));
        offset += n;
    }
    layer.dropCache(fd, 0, 0);
    layer.close(fd);
    return failed ? std::nullopt : std::optional(digest.hexDigest());
}

}  // namespace

ManifestVerifier::Report ManifestVerifier::verify(const QString& folderText, FileLayer& layer) {
    Report report;
    const QByteArray folder = PathText::bytes(folderText);
    const QByteArray manifestName = ChecksumManifest::find(layer, folder);
    const int fd = layer.openRead(folder + '/' + manifestName);
    if (fd < 0)
        return report;
    QByteArray text;
    std::vector<char> buffer(1 << 16);
    for (ssize_t n = 0; (n = layer.read(fd, buffer.data(), buffer.size(), text.size())) > 0;)
        text.append(buffer.data(), n);
    layer.close(fd);
    report.manifestFound = true;

    std::multimap<QByteArray, QByteArray> files;
    collect(layer, folder, {}, files);
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
        ++report.checked;
        const auto kind =
            line->digest.size() == 40 ? DigestContext::Kind::SHA1 : DigestContext::Kind::MD5;
        // Two files of one name share a line: either may be the one it describes.
        bool matched = false;
        for (auto it = first; it != last && !matched; ++it)
            matched = digestFromMedium(layer, folder + it->second, kind) ==
                      QString::fromLatin1(line->digest);
        if (!matched)
            report.differing << shown;
    }
    // Hidden files are listed when the copy brought them; others (a file manager's) are no
    // extra, nor is what the transfer adds at the top.
    for (const auto& [name, path] : files) {
        const bool top = path.count('/') == 1;
        if (listed.contains(name) || name.startsWith('.'))
            continue;
        if (top && (name == manifestName || isArchive(name)))
            continue;
        report.extra << PathText::display(path.mid(1));
    }
    return report;
}
