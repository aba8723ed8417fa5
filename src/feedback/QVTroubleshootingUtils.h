#pragma once
// Gathering for support: the logs, crash reports and settings of the named programs (and any
// extra files) into "NAME Logs.zip" on the desktop; and the current log opened for reading.
// Class-level; blocks while it copies and zips, so callers keep it off the main thread or
// accept the short wait.

#include <QString>
#include <QStringList>
#include <functional>
#include <memory>

class LocalPaths;

class Clock;
class QVTroubleshootingUtils {
  public:
    /// Tells the user an outcome: a title and a text.
    using Tell = std::function<void(const QString& title, const QString& text)>;

    struct Places {
        QString logFolder;                   // the logs: NAME.1.log, NAME.2.log, ...
        QStringList crashFolders;            // reports named NAME_...
        QString settingsFolder;              // com.quorvant.NAME.plist
        QString desktop;                     // where the zip goes
        QString temporary;                   // where the work folder is made
        std::shared_ptr<const Clock> clock;  // dates a second zip's name
    };
    static Places placesFor(const LocalPaths& paths, std::shared_ptr<const Clock> clock);

    /// The zip's path, or empty when nothing was found or it could not be written; unless
    /// silent, tell is given the outcome.
    static QString gatherLogsForAppsWithNames(const Places& places, const QStringList& names,
                                              bool silent = false,
                                              const QStringList& additionalFiles = {},
                                              const Tell& tell = {});
    /// The current log of the program, "" when there is none yet (tell says so).
    static QString currentLog(const Places& places, const QString& name, const Tell& tell = {});
    /// The same for the log of a run as a scheduled task (NAME.1.task.log).
    static QString currentTaskLog(const Places& places, const QString& name, const Tell& tell = {});
};
