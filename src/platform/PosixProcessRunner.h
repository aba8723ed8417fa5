#pragma once
// Runs programs with posix_spawn (QVTask) and enforces time-outs on the calling thread, so
// it works from worker threads without any event loop. Stateless; safe from any thread.

#include "ProcessRunner.h"

class PosixProcessRunner : public ProcessRunner {
  public:
    ProcessResult run(const QString& program, const QStringList& arguments,
                      double timeoutSeconds = 0) override;
    bool start(const QString& program, const QStringList& arguments) override;

    /// The launch path for program: itself when it names a path, else SystemTool::find;
    /// empty when not found.
    static QString resolve(const QString& program);
};
