#include "ManifestVerifier.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <map>

#include "FileHash.h"

namespace {

bool isLeftOut(const QString& name) {
    return name == QLatin1String("checksums.txt") || name.endsWith(QLatin1String(" Archive.dmg")) ||
           name.endsWith(QLatin1String(" Archive.zip"));
}

// Every compared file of the folder, by name (the manifest knows only names).
std::multimap<QString, QString> filesByName(const QString& folder) {
    std::multimap<QString, QString> files;
    QDirIterator it(folder, QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden);
    while (it.hasNext()) {
        const QString path = it.next();
        const QFileInfo info = it.fileInfo();
        if (isLeftOut(info.fileName()) || info.isSymLink())
            continue;
        if (info.isDir()) {
            for (const auto& entry : filesByName(path))
                files.insert(entry);
        } else {
            files.emplace(info.fileName(), path);
        }
    }
    return files;
}

std::optional<QString> digestOf(const QString& path, qsizetype length) {
    return length == 40 ? FileSHA1HashCreateWithPath(path, 1 << 20)
                        : FileMD5HashCreateWithPath(path, 1 << 20);
}

}  // namespace

ManifestVerifier::Report ManifestVerifier::verify(const QString& folder) {
    Report report;
    QFile manifest(folder + QStringLiteral("/checksums.txt"));
    if (!manifest.open(QIODevice::ReadOnly))
        return report;
    report.manifestFound = true;
    const std::multimap<QString, QString> files = filesByName(folder);
    QStringList listed;
    for (const QString& line :
         QString::fromUtf8(manifest.readAll()).split(u'\n', Qt::SkipEmptyParts)) {
        const QString digest = line.section(u'\t', 0, 0);
        const QString name = line.section(u'\t', 1);
        listed << name;
        const auto [first, last] = files.equal_range(name);
        if (first == last) {
            report.missing << name;
            continue;
        }
        ++report.checked;
        // Two files of one name share a line: either may be the one it describes.
        bool matched = false;
        for (auto it = first; it != last && !matched; ++it)
            matched = digestOf(it->second, digest.size()) == digest;
        if (!matched)
            report.differing << name;
    }
    // Hidden files are listed when the copy brought them; others (a file manager's) are no
    // extra.
    for (const auto& [name, path] : files) {
        if (!listed.contains(name) && !name.startsWith(u'.'))
            report.extra << path.mid(folder.size() + 1);
    }
    return report;
}
