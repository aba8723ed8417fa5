#include "CardsweepVolumeChecker.h"

#include <sys/stat.h>

#include <QFile>
#include <QStringList>
#include <optional>
#include <vector>

#include "CardFormat.h"
#include "FileLayer.h"
#include "QVFileManager.h"
#include "QVLog.h"

namespace {

// Any kind of entry counts, a dangling symbolic link included.
bool exists(FileLayer& files, const QString& path) {
    return files.exists(QFile::encodeName(path));
}

// Names directly inside a folder as the file system reports them; nullopt when it can't be read.
std::optional<QStringList> readFolder(FileLayer& files, const QString& folder) {
    std::vector<FileLayer::Entry> entries;
    if (files.listFolder(QFile::encodeName(folder), &entries) != 0)
        return std::nullopt;
    QStringList names;
    for (const FileLayer::Entry& entry : entries)
        names << QFile::decodeName(entry.name);
    return names;
}

QStringList entryNames(FileLayer& files, const QString& folder) {
    return readFolder(files, folder).value_or(QStringList());
}

// The last component, ignoring trailing slashes ("/media/A001/" names "A001").
QString lastComponent(const QString& path) {
    qsizetype end = path.size();
    while (end > 1 && path[end - 1] == u'/')
        --end;
    const QString trimmed = path.left(end);
    if (trimmed == QLatin1String("/"))
        return trimmed;
    return trimmed.mid(trimmed.lastIndexOf(u'/') + 1);
}

bool anyHasExtension(const QStringList& names, QStringView extension) {
    for (const QString& name : names) {
        const qsizetype dot = name.lastIndexOf(u'.');
        if (dot >= 0 && QStringView(name).mid(dot + 1) == extension)
            return true;
    }
    return false;
}

bool anyStartsWith(const QStringList& names, QStringView prefix) {
    for (const QString& name : names) {
        if (name.startsWith(prefix))
            return true;
    }
    return false;
}

// A camera's reel folder named like the card, its editing list, and a movie of the reel.
bool isArriCard(FileLayer& files, const QString& path) {
    const QString volume = lastComponent(path);
    if (volume.size() < 4)
        return false;
    const QString reel = path + u'/' + volume;
    if (!exists(files, reel) || !exists(files, reel + u'/' + volume + QLatin1String("_FCP.xml")))
        return false;
    const QString prefix = volume.left(4);
    for (const QString& name : entryNames(files, reel)) {
        if (name.startsWith(prefix) && name.endsWith(QLatin1String(".mov")))
            return true;
    }
    return false;
}

int code(CardFormat format) {
    return static_cast<int>(format);
}

}  // namespace

int CardsweepVolumeChecker::verifyVolumeType(FileLayer& files, const QString& path) {
    if (path.isEmpty())
        return code(CardFormat::Unknown);
    const std::optional<QStringList> listing = readFolder(files, path);
    if (!listing)
        QVLog::fastAppendLog(u"Unable to read the volume at %@", path);
    const QStringList names = listing.value_or(QStringList());
    const auto under = [&path](const char* relative) {
        return path + u'/' + QLatin1String(relative);
    };

    if (exists(files, under("CONTENTS/LASTCLIP.TXT")))
        return code(CardFormat::P2);
    if (anyHasExtension(names, u"RDM"))
        return code(CardFormat::RED);
    if (exists(files, under("MEDIAPRO.XML")))
        return code(CardFormat::XDCAM);
    if (names.contains(QLatin1String("BPAV")))
        return code(CardFormat::XDCAMEX);
    if (exists(files, under("PRIVATE/AVCHD")) || exists(files, under("AVCHD")))
        return code(CardFormat::AVCHD);
    if (exists(files, under("DCIM")) && anyStartsWith(entryNames(files, under("DCIM")), u"100EOS"))
        return code(CardFormat::EOSHD);
    if (isArriCard(files, path))
        return code(CardFormat::ARRI);
    if (!exists(files, under("CONTENTS")))
        return code(CardFormat::Unknown);
    // The card's own path is the base, so a "*" or "?" in a card name stays a plain character.
    if (!QVFileManager(files)
             .filesMatchingWildcardPath(QStringLiteral("CONTENTS/CLIPS*/*/*.MXF"), path)
             .isEmpty())
        return code(CardFormat::CanonXF);
    return code(CardFormat::Unknown);
}
