#pragma once
// One child process started with posix_spawn: launch path, argument vector (never a shell),
// optional environment, and where its standard streams go.
//
// Thread-safety: configure and launch from one thread; after launch, isRunning(), terminate(),
// waitUntilExit() and terminationStatus() may be called from any thread. Each output pipe may be
// read by one thread while another closes it.

#include <sys/types.h>

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>
#include <mutex>
#include <optional>

#include "UniqueFd.h"

class QVTask {
  public:
    /// Where one of the child's standard streams goes.
    enum class Channel {
        Inherit,     ///< the parent's own stream
        NullDevice,  ///< /dev/null
        Pipe,        ///< a pipe; the parent keeps the other end (never written for stdin)
    };
    using Environment = QMap<QString, QString>;

    QVTask() = default;
    /// Closes the parent's pipe ends. A child still running is not signalled; it is reaped in
    /// the background when it ends, so it never lingers as a zombie.
    ~QVTask();
    QVTask(const QVTask&) = delete;
    QVTask& operator=(const QVTask&) = delete;

    // Configuration; takes effect at launch().
    void setLaunchPath(const QString& path);
    void setArguments(const QStringList& arguments);
    /// Replaces the parent's environment for the child; unset means the parent's.
    void setEnvironment(const std::optional<Environment>& environment);
    void setStandardInput(Channel channel);
    void setStandardOutput(Channel channel);
    void setStandardError(Channel channel);
    QString launchPath() const;

    /// Starts the child. Throws QVException when it cannot be started or was started before.
    void launch();

    /// Blocks until the output (error) pipe has data or reaches its end; returns what was
    /// there, empty at the end, once closed, or when that stream is not a pipe.
    /// Throws QVException on a read error.
    QByteArray readOutput();
    QByteArray readError();
    /// Closes the reading end; a read blocked on it in another thread finishes first.
    void closeOutput();
    void closeError();

    /// The child's process id; 0 before launch.
    pid_t processIdentifier() const;
    bool isRunning();
    /// Sends SIGTERM if the child was launched and not yet reaped.
    void terminate();
    /// Returns at once when the child was never launched.
    void waitUntilExit();
    /// The exit code, or 128 + signal number for a child ended by a signal (as a shell
    /// reports it). -1 until the child is known to have ended.
    int terminationStatus() const;

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
    QString launchPath_;                      // guarded by mutex_
    QStringList arguments_;                   // guarded by mutex_
    std::optional<Environment> environment_;  // guarded by mutex_
    Channel stdin_ = Channel::Inherit;        // guarded by mutex_
    Channel stdout_ = Channel::Inherit;       // guarded by mutex_
    Channel stderr_ = Channel::Inherit;       // guarded by mutex_
    pid_t pid_ = 0;                           // guarded by mutex_
    bool exited_ = false;                     // guarded by mutex_
    bool reaped_ = false;                     // guarded by mutex_
    int waiters_ = 0;                         // guarded by mutex_; blocked in waitUntilExit
    int status_ = -1;                         // guarded by mutex_

    Descriptor inputWrite_;  // kept open so a reading child sees an empty, open pipe
    ReadEnd output_;
    ReadEnd error_;
};
