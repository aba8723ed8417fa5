#include "QVBugReporter.h"

#include <QDir>
#include <QFileInfo>

#include "LocalPaths.h"
#include "PropertyList.h"
#include "QVLog.h"

QStringList QVBugReporter::crashFolders(const LocalPaths& paths) {
    QStringList folders;
    for (const bool user : {true, false}) {
        const QString logs = paths.pathForDirectory(StandardDirectory::Logs, user);
        if (logs.isEmpty())
            continue;
        folders << logs + QStringLiteral("/CrashReporter")
                << logs + QStringLiteral("/DiagnosticReports");
    }
    return folders;
}

bool QVBugReporter::isDisabled(const QString& globalFile) {
    const PropertyList value =
        PropertyList::readFile(globalFile)[QStringLiteral("disable-crash-reporter")];
    return value.toString() == u"1" || value.toInteger() == 1;
}

void QVBugReporter::record(const Places& places, const QString& key, const QDateTime& now) {
    const PropertyList read = PropertyList::readFile(places.recordFile);
    PropertyList::Dictionary entries = read.type() == PropertyList::Type::Dictionary
                                           ? read.toDictionary()
                                           : PropertyList::Dictionary{};
    entries[key] = PropertyList(now);
    QDir().mkpath(QFileInfo(places.recordFile).path());
    PropertyList(entries).writeFile(places.recordFile);
}

std::optional<QString> QVBugReporter::startBugReporter(const Places& places, const QDateTime& now,
                                                       const Delegate& delegate) {
    const auto report = checkForCrashes(places);
    if (report && delegate && !isDisabled(places.globalFile))
        delegate(*report);
    record(places, QStringLiteral("launch"), now);
    return report;
}

void QVBugReporter::stopBugReporter(const Places& places, const QDateTime& now) {
    record(places, QStringLiteral("exit"), now);
}

std::optional<QString> QVBugReporter::checkForCrashes(const Places& places) {
    const PropertyList record = PropertyList::readFile(places.recordFile);
    const PropertyList launch = record[QStringLiteral("launch")];
    if (launch.isAbsent())
        return std::nullopt;
    const QDateTime launched = launch.toDateTime();
    const PropertyList exit = record[QStringLiteral("exit")];
    if (!exit.isAbsent() && exit.toDateTime() >= launched)
        return std::nullopt;  // the last run ended cleanly
    // "NAME_" and nothing shorter: "NAMEHelper_..." is another program's.
    const QString prefix = places.appName + u'_';
    std::optional<QString> found;
    for (const QString& folder : places.crashFolders) {
        const QDir listing(folder);
        QStringList mine;
        for (const QString& name : listing.entryList(QDir::Files, QDir::Name)) {
            if (name.startsWith(prefix, Qt::CaseInsensitive))
                mine << name;
        }
        if (mine.isEmpty())
            continue;
        const QFileInfo newest(listing.filePath(mine.last()));
        if (newest.lastModified() > launched) {
            found = newest.absoluteFilePath();
            break;
        }
    }
    if (!found)
        return std::nullopt;
    QVLog::appendLog(u"Application crashed on last launch");
    if (isDisabled(places.globalFile))
        QVLog::appendLog(u"Crash reporter disabled");
    return found;
}
