#pragma once
// Background jobs as systemd units: a job (launchd's keys: Label, Program, ProgramArguments,
// WorkingDirectory, StartOnMount, RunAtLoad) is written as LABEL.service into the user's
// `$XDG_CONFIG_HOME/systemd/user` (an agent), `/etc/systemd/user` (an agent for every user) or
// `/etc/systemd/system` (a daemon), then enabled and started through systemctl. A job started
// on mount runs as a long-lived service that watches mounts itself; one run at load is a
// oneshot. Runs on the calling thread and blocks for up to the commands' time-outs.

#include <QByteArray>
#include <QString>
#include <functional>

#include "PropertyList.h"

class LocalPaths;
class ProcessRunner;
class QVAuthorization;

class QVLaunchd {
  public:
    /// Shows an alert sheet (title, text) on the main window.
    using Alert = std::function<void(const QString& title, const QString& text)>;

    /// authorization may be null: then the authorised fall-backs fail as a refusal would.
    QVLaunchd(ProcessRunner& processes, const LocalPaths& paths, QVAuthorization* authorization,
              Alert alert);

    /// The folder jobs of that kind live in.
    QString jobFolder(bool user, bool launchAgent) const;
    /// jobFolder + "/LABEL.service".
    QString jobFile(const QString& label, bool user, bool launchAgent) const;
    /// The unit a job's dictionary becomes.
    static QByteArray unitText(const PropertyList& job);

    /// Writes the unit (removing an old one first; through a temporary file and administrator
    /// rights when it can't be written directly), ends killProcessName if given, and loads it.
    /// False only when the unit could not be written.
    bool startJob(const QString& label, const PropertyList& settings, bool user, bool launchAgent,
                  bool shouldAuth, const QString& killProcessName = {});
    bool startLaunchAgent(const QString& label, const PropertyList& settings, bool user);
    /// Stops and disables the job; leaves its file.
    void stopJob(const QString& label, bool user, bool launchAgent, bool shouldAuth);
    /// Stops the job and deletes its file.
    void removeJob(const QString& label, bool user, bool launchAgent, bool shouldAuth);
    /// Always the user's own agents, whatever `user` says.
    void removeLaunchAgent(const QString& label, bool user);

  private:
    /// systemctl with the scope's flag ("--user", "--global" or none), time-out 10 s.
    void systemctl(bool user, bool launchAgent, QStringList arguments);
    bool writeThroughTemporaryFile(const QString& folder, const QString& file,
                                   const QByteArray& unit);
    void unableToWrite(const QString& title, const QString& folder);

    ProcessRunner& processes_;
    const LocalPaths& paths_;
    QVAuthorization* authorization_;
    Alert alert_;
};
