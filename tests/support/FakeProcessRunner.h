#pragma once
// A ProcessRunner that starts nothing: it records every call and answers from a script per
// program name, so tests can see exactly which commands ran and make them fail or hang.
// Safe from any thread.

#include <QHash>
#include <functional>
#include <mutex>
#include <vector>

#include "ProcessRunner.h"

class FakeProcessRunner : public ProcessRunner {
  public:
    struct Call {
        QString program;  // as given
        QStringList arguments;
        double timeoutSeconds = 0;
        bool waited = true;  // false for start()
    };
    /// Answers one run from its arguments (and may act on other fakes, e.g. unmount).
    using Script = std::function<ProcessResult(const QStringList& arguments)>;

    /// Runs of program (matched by file name, so "umount" also answers "/usr/bin/umount")
    /// answer result; unscripted programs are "not installed" (started = false).
    void answer(const QString& program, const ProcessResult& result);
    void answer(const QString& program, Script script);
    /// Runs of program never end by themselves: each reports timedOut at once, as if its
    /// time-out had passed. A run with no time-out would hang for ever and fails the test.
    void hang(const QString& program);
    /// An exit status of its own, with nothing printed.
    static ProcessResult exited(int exitCode, const QByteArray& output = {});

    void setRunsAsRoot(bool root);

    ProcessResult run(const QString& program, const QStringList& arguments,
                      double timeoutSeconds = 0) override;
    bool start(const QString& program, const QStringList& arguments) override;
    bool runsAsRoot() const override;
    /// Children of this program (a full path) are real ones, unrecorded: our own helpers.
    void passThrough(const QString& launchPath);
    /// Other children are never made here: throws QVException.
    std::shared_ptr<ChildProcess> makeChild(const ChildProcess::Setup& setup) override;
    /// True for a scripted program.
    bool isExecutable(const QString& path) const override;

    std::vector<Call> calls() const;
    /// Each call as one line, "program arg1 arg2", for compact expectations.
    QStringList commandLines() const;

  private:
    mutable std::mutex mutex_;
    QHash<QString, Script> scripts_;  // guarded by mutex_; by file name
    std::vector<Call> calls_;         // guarded by mutex_
    bool root_ = true;                // guarded by mutex_
    QStringList passedThrough_;       // guarded by mutex_
};
