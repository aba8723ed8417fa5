#include "QVTroubleshootingUtils.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include "Clock.h"
#include "LocalPaths.h"
#include "QVBugReporter.h"
#include "QVLog.h"
#include "ZipArchive.h"

namespace {

// Copies file into folder (under sub-folder part); false (logged with line) when it fails.
bool copyInto(const QString& file, const QString& folder, const char16_t* line) {
    QDir().mkpath(folder);
    const QString target = folder + u'/' + QFileInfo(file).fileName();
    QFile::remove(target);
    if (QFile::copy(file, target))
        return true;
    QVLog::appendLog(QStringView(line), file);
    return false;
}

}  // namespace

QVTroubleshootingUtils::Places QVTroubleshootingUtils::placesFor(
    const LocalPaths& paths, std::shared_ptr<const Clock> clock) {
    return {paths.logDirectory() + QStringLiteral("/Quorvant"),
            QVBugReporter::crashFolders(paths),
            paths.pathForDirectory(StandardDirectory::Preferences, true),
            paths.desktopDirectory(),
            paths.tempDirectory(),
            std::move(clock)};
}

QString QVTroubleshootingUtils::gatherLogsForAppsWithNames(const Places& places,
                                                           const QStringList& names, bool silent,
                                                           const QStringList& additionalFiles,
                                                           const Tell& tell) {
    const auto say = [&](const QString& title, const QString& text) {
        if (!silent && tell)
            tell(title, text);
    };
    const QString work = places.temporary + QStringLiteral("/QV_App_Logs");
    if (QFileInfo::exists(work) && !QDir(work).removeRecursively())
        QVLog::appendLog(u"Error removing existing folder: %@", work);
    if (!QDir().mkpath(work)) {
        QVLog::appendLog(u"Error creating temp folder: %@", work);
        return {};
    }
    int copied = 0;
    for (const QString& name : names) {
        const QDir logs(places.logFolder);
        for (const QString& log : logs.entryList({name + QStringLiteral(".*log")}, QDir::Files))
            copied += copyInto(logs.filePath(log), work + QStringLiteral("/Logs"),
                               u"Unable to copy log: %@");
        for (const QString& folder : places.crashFolders) {
            const QDir reports(folder);
            for (const QString& report : reports.entryList(QDir::Files)) {
                if (report.startsWith(name + u'_', Qt::CaseInsensitive) &&
                    report.endsWith(QStringLiteral(".crash")))
                    copied += copyInto(reports.filePath(report), work + QStringLiteral("/Crashes"),
                                       u"Unable to copy log: %@");
            }
        }
        const QString settings =
            places.settingsFolder + QStringLiteral("/Quorvant/com.quorvant.%1.plist").arg(name);
        if (QFileInfo::exists(settings))
            copied +=
                copyInto(settings, work + QStringLiteral("/Settings"), u"Unable to copy log: %@");
    }
    for (const QString& file : additionalFiles) {
        if (QFileInfo::exists(file))
            copied += copyInto(file, work + QStringLiteral("/Other"), u"Unable to copy file: %@");
    }
    if (copied == 0) {
        QDir(work).removeRecursively();
        say(QStringLiteral("No logs found"),
            QStringLiteral("There were no logs available to gather."));
        return {};
    }
    const QString base = places.desktop + QStringLiteral("/%1 Logs").arg(names.value(0));
    QString zip = base + QStringLiteral(".zip");
    if (QFileInfo::exists(zip))
        zip = base + QStringLiteral("_%1.zip").arg(places.clock->now().toLocalTime().toString(
                         QStringLiteral("yyyyMMddHHmmss")));
    QDir().mkpath(places.desktop);
    const bool zipped = !QFileInfo::exists(zip) && ZipArchive::compress(work, zip, false);
    QDir(work).removeRecursively();
    if (!zipped) {
        say(QStringLiteral("Logs could not be gathered"),
            QStringLiteral("Please check your file permissions."));
        return {};
    }
    say(QStringLiteral("Logs gathered successfully"),
        QStringLiteral("The gathered logs were placed on your desktop."));
    return zip;
}

namespace {

// The log if it is there; else tell says why there is none.
QString existingLog(const QString& log, const QString& why,
                    const QVTroubleshootingUtils::Tell& tell) {
    if (QFileInfo::exists(log))
        return log;
    if (tell)
        tell(QStringLiteral("No log found"), why);
    return {};
}

}  // namespace

QString QVTroubleshootingUtils::currentLog(const Places& places, const QString& name,
                                           const Tell& tell) {
    return existingLog(places.logFolder + QStringLiteral("/%1.1.log").arg(name),
                       QStringLiteral("You must perform a task before viewing the log."), tell);
}

QString QVTroubleshootingUtils::currentTaskLog(const Places& places, const QString& name,
                                               const Tell& tell) {
    return existingLog(places.logFolder + QStringLiteral("/%1.1.task.log").arg(name),
                       QStringLiteral("You must run the application as a scheduled task (for "
                                      "example from a systemd timer) before viewing its log."),
                       tell);
}
