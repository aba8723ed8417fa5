#pragma once
// Runs external programs with an argument vector, never a shell, so the rest of the system can
// be tested with a fake. Implementations are safe from any thread.

#include <unistd.h>

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <memory>

#include "ChildProcess.h"

/// What became of one run.
struct ProcessResult {
    bool started = false;
    bool timedOut = false;
    int exitCode = -1;  // 128 + signal when signalled
    QByteArray output;
};

class ProcessRunner {
  public:
    virtual ~ProcessRunner() = default;

    /// Runs program (full path or a name looked up on PATH and the system folders) with an
    /// argument vector, never a shell; waits at most timeoutSeconds (<= 0: no limit), then
    /// kills it and reports timedOut. Captures stdout (stderr when stdout is empty). Safe from
    /// any thread; must not need the main thread's event loop.
    virtual ProcessResult run(const QString& program, const QStringList& arguments,
                              double timeoutSeconds = 0) = 0;

    /// Starts without waiting; false when it could not start.
    virtual bool start(const QString& program, const QStringList& arguments) = 0;

    /// A child set up but not yet launched, for callers that stream its output or stop it
    /// from another thread. Never null.
    virtual std::shared_ptr<ChildProcess> makeChild(const ChildProcess::Setup& setup) = 0;

    /// True for an existing regular file this process may execute (a folder never is).
    virtual bool isExecutable(const QString& path) const = 0;

    /// True when the programs it runs act as root, so administrators' tools may be used
    /// instead of asking a daemon.
    virtual bool runsAsRoot() const { return ::geteuid() == 0; }
};
