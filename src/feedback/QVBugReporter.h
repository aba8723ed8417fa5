#pragma once
// Did the last run crash? Each run records its launch and, when it ends cleanly, its exit in a
// property-list file; at the next start a crash report of ours newer than an unmatched launch
// means it crashed. The "disable-crash-reporter" switch of the global settings keeps the
// report from being handed on. Class-level; called from the main thread.

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <functional>
#include <optional>

class LocalPaths;

class QVBugReporter {
  public:
    struct Places {
        QString recordFile;        // "launch" and "exit" dates
        QStringList crashFolders;  // searched in this order
        QString globalFile;        // "disable-crash-reporter"
        QString appName;
    };
    /// Told the report's path when the last run crashed and the switch does not forbid it.
    using Delegate = std::function<void(const QString& crashReport)>;

    /// The four folders reports are searched in: the user's and the machine's Logs folders,
    /// each + "CrashReporter" and + "DiagnosticReports". Our own handler writes into the first.
    static QStringList crashFolders(const LocalPaths& paths);

    /// The crash check, then "launch" = now. Returns the report of a crash found.
    static std::optional<QString> startBugReporter(const Places& places, const QDateTime& now,
                                                   const Delegate& delegate = {});
    /// "exit" = now: this run ended cleanly.
    static void stopBugReporter(const Places& places, const QDateTime& now);
    /// The report of the last run's crash, if it crashed.
    static std::optional<QString> checkForCrashes(const Places& places);
    /// True when the global settings switch the hand-over off ("1" or 1).
    static bool isDisabled(const QString& globalFile);

  private:
    static void record(const Places& places, const QString& key, const QDateTime& now);
};
