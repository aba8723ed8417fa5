#pragma once
// One running instance of our privileged runner ("CardsweepAuthTool --serve"), started once
// behind pkexec, `sudo -S` or nothing (as root), that executes argument vectors as the
// superuser for the life of the session: the approval is asked for once. Requests are sent
// one at a time; the runner's answers never mix with the tools' output, which goes to stderr.
// Safe from any thread (requests are serialised).

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <memory>
#include <mutex>

class ChildProcess;
class ProcessRunner;

class PrivilegedSession {
  public:
    /// Starts `prefix... runner --serve` (prefix may be empty); `input` is written to its
    /// stdin first (a password for `sudo -S`). ready() says whether it answered "ready".
    PrivilegedSession(ProcessRunner& processes, const QStringList& prefix, const QString& runner,
                      const QByteArray& input = {});
    /// Ends the runner (its stdin closes) and waits for it.
    ~PrivilegedSession();
    PrivilegedSession(const PrivilegedSession&) = delete;
    PrivilegedSession& operator=(const PrivilegedSession&) = delete;

    bool ready() const { return ready_; }

    /// Runs tool with arguments as the superuser and waits for it: its exit status, 126 for
    /// a request the runner refused, -1 when the session is gone.
    int execute(const QString& tool, const QStringList& arguments);

  private:
    bool readLine(QByteArray* line);
    void end();

    std::mutex mutex_;
    std::shared_ptr<ChildProcess> child_;  // guarded by mutex_; null once ended
    QByteArray pending_;                   // guarded by mutex_; read past the last line
    bool ready_ = false;
};
