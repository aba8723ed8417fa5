#pragma once
// The Linux child process: started with posix_spawn from a launch path and an argument vector
// (never a shell), with its standard streams where the setup says. Thread rule as ChildProcess.

#include <mutex>

#include "ChildProcess.h"
#include "UniqueFd.h"

class QVTask : public ChildProcess {
  public:
    using Channel = ChildProcess::Channel;

    explicit QVTask(const Setup& setup);
    /// Closes the parent's pipe ends. A child still running is not signalled; it is reaped in
    /// the background when it ends, so it never lingers as a zombie.
    ~QVTask() override;
    QVTask(const QVTask&) = delete;
    QVTask& operator=(const QVTask&) = delete;

    QString launchPath() const override;
    void launch() override;
    QByteArray readOutput() override;
    QByteArray readError() override;
    void closeOutput() override;
    void closeError() override;
    bool writeInput(const QByteArray& data) override;
    void closeInput() override;
    pid_t processIdentifier() const override;
    bool isRunning() override;
    void terminate() override;
    void waitUntilExit() override;
    int terminationStatus() const override;

  private:
    using Descriptor = UniqueFd;

    /// The parent's reading end of a pipe. Closing defers the close(2) until reads in progress
    /// return, so a blocked reader never ends up on a reused descriptor number.
    class ReadEnd {
      public:
        ~ReadEnd() { close(); }
        void open(Descriptor fd);
        QByteArray read();
        void close();

      private:
        std::mutex mutex_;
        Descriptor fd_;        // guarded by mutex_
        int readers_ = 0;      // guarded by mutex_
        bool closed_ = false;  // guarded by mutex_
    };

    struct Pipe {
        Descriptor read;
        Descriptor write;
    };
    static Pipe makePipe();
    static void recordStatus(int& status, int siCode, int siStatus);

    // REQUIRES: mutex_ is held.
    bool peekExitLocked();
    void reapIfUnwatchedLocked();

    mutable std::mutex mutex_;
    const QString launchPath_;
    const QStringList arguments_;
    const std::optional<Environment> environment_;
    const Channel stdin_;
    const Channel stdout_;
    const Channel stderr_;
    pid_t pid_ = 0;        // guarded by mutex_
    bool exited_ = false;  // guarded by mutex_
    bool reaped_ = false;  // guarded by mutex_
    int waiters_ = 0;      // guarded by mutex_; blocked in waitUntilExit
    int status_ = -1;      // guarded by mutex_

    // Kept open until closeInput, so a reading child sees an open pipe; one writer at a time.
    Descriptor inputWrite_;
    ReadEnd output_;
    ReadEnd error_;
};
