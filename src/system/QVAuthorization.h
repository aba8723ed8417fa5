#pragma once
// File operations with administrator rights. The approval is asked for once per process
// (pkexec's dialog, or a given name and password through `sudo -S`) and kept: one privileged
// runner of ours then executes each argument vector as the superuser, never through a shell.
// As root the tools run directly. Destructive operations refuse the system directories, and
// every request is held to the runner's own list of tools and places before it is sent. Safe from
// any thread; approval is sought by whichever thread needs it first.

#include <QString>
#include <QStringList>
#include <memory>
#include <mutex>

class Clock;
class LocalPaths;
class PrivilegedSession;
class ProcessRunner;

class QVAuthorization {
  public:
    /// How the approval is sought: the program put in front of the runner for the dialog
    /// ("pkexec"), for a name and password ("sudo -S -k -p ''"), and the runner itself.
    struct Approval {
        QStringList dialog{QStringLiteral("pkexec")};
        QStringList password{QStringLiteral("sudo"), QStringLiteral("-S"), QStringLiteral("-k"),
                             QStringLiteral("-p"), QString()};
        QString runner;  // empty: CardsweepAuthTool beside the running program
    };

    /// hasGUI: whether the user may be asked through a dialog.
    /// clock: stamps the name of a file trashed beside one of the same name.
    QVAuthorization(ProcessRunner& processes, const LocalPaths& paths, const Clock& clock,
                    bool hasGUI);
    QVAuthorization(ProcessRunner& processes, const LocalPaths& paths, const Clock& clock,
                    bool hasGUI, Approval approval);
    ~QVAuthorization();
    QVAuthorization(const QVAuthorization&) = delete;
    QVAuthorization& operator=(const QVAuthorization&) = delete;

    bool authStart();
    /// sudo checks the password of the user running us: another name is refused.
    bool authStartWithUser(const QString& user, const QString& password);
    void authEnd();
    bool isAuthorized() const;
    bool canAuthorize() const;

    bool authRemoveFile(const QString& path);
    bool authTrashFile(const QString& path, bool deleteOnRootAccount = false);
    bool authTrashFolderContents(const QString& folder, bool deleteOnRootAccount = false);
    bool authMoveFolderContents(const QString& folder, const QString& destination);
    bool authMoveFile(const QString& path, const QString& newPath);
    bool authCopyFile(const QString& path, const QString& newPath);
    bool authCreateDir(const QString& path);

    /// 0 on success, -2 when the tool does not exist, -1 without approval, otherwise the
    /// tool's exit status (126 for a request the runner refused). Every call returns once the
    /// tool has ended, also with async: a later step may rely on the earlier one's result.
    int authExecTask(const QString& tool, const QStringList& parameters, bool async = true);

    /// Why the runner must not run this request for the user behind this process (see
    /// PrivilegedToolPolicy, which the runner applies too); empty when it may.
    static QString refusalForTask(const QString& tool, const QStringList& parameters);

  private:
    bool runsAsRoot() const;
    /// True (and logged) when the request is one the runner refuses.
    bool refused(const QString& tool, const QStringList& parameters) const;
    bool startSession(const QStringList& prefix, const QByteArray& input);
    QString runner() const;
    /// Runs directly (as root) or through the runner; true on exit status 0.
    bool runTool(const QString& tool, const QStringList& parameters);
    QString trashTarget(const QString& path) const;

    ProcessRunner& processes_;
    const LocalPaths& paths_;
    const Clock& clock_;
    const bool hasGUI_;
    const Approval approval_;
    const QString userDirectory_;
    std::mutex approving_;  // held while approval is sought, so only one dialog is shown
    mutable std::mutex mutex_;
    std::shared_ptr<PrivilegedSession> session_;  // guarded by mutex_; the kept approval
};
