#pragma once
// Runs programs with posix_spawn (QVTask) and enforces time-outs on the calling thread, so
// it works from worker threads without any event loop. Stateless; safe from any thread.

#include "ProcessRunner.h"

class PosixProcessRunner : public ProcessRunner {
  public:
    ProcessResult run(const QString& program, const QStringList& arguments,
                      double timeoutSeconds = 0) override;
    bool start(const QString& program, const QStringList& arguments) override;
    std::shared_ptr<ChildProcess> makeChild(const ChildProcess::Setup& setup) override;
    bool isExecutable(const QString& path) const override;

    /// Full path of a tool named without a folder, looked for on PATH and in the system
    /// folders; empty when it isn't installed.
    static QString find(const QString& name);
};
