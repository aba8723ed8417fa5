#pragma once
// One child process as the task runner sees it: set up, launched once, then read, waited for
// or stopped. Made by a ProcessRunner, so the runner decides how processes really start.
//
// Thread-safety: launch from one thread; after launch, isRunning(), terminate(),
// waitUntilExit() and terminationStatus() may be called from any thread. Each output pipe may
// be read by one thread while another closes it; the input pipe is written by one thread at a
// time.

#include <sys/types.h>

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>
#include <optional>

class ChildProcess {
  public:
    /// Where one of the child's standard streams goes.
    enum class Channel {
        Inherit,     ///< the parent's own stream
        NullDevice,  ///< /dev/null
        Pipe,        ///< a pipe; the parent keeps the other end (stdin: see writeInput)
    };
    using Environment = QMap<QString, QString>;

    /// What to start: a full path and an argument vector (never a shell).
    struct Setup {
        QString launchPath;
        QStringList arguments;
        std::optional<Environment> environment;  ///< unset: the parent's
        Channel input = Channel::Inherit;
        Channel output = Channel::Inherit;
        Channel error = Channel::Inherit;
    };

    virtual ~ChildProcess() = default;

    virtual QString launchPath() const = 0;
    /// Starts the child. Throws QVException when it cannot be started or was started before.
    virtual void launch() = 0;
    /// Blocks until the output (error) pipe has data or reaches its end; returns what was
    /// there, empty at the end, once closed, or when that stream is not a pipe.
    /// Throws QVException on a read error.
    virtual QByteArray readOutput() = 0;
    virtual QByteArray readError() = 0;
    /// Closes the reading end; a read blocked on it in another thread finishes first.
    virtual void closeOutput() = 0;
    virtual void closeError() = 0;
    /// Writes all of data to the child's piped stdin; false when stdin is no pipe, was closed,
    /// or the child no longer reads it (the caller ignores SIGPIPE).
    virtual bool writeInput(const QByteArray& data) = 0;
    /// Closes the child's piped stdin, so a child reading it sees its end.
    virtual void closeInput() = 0;
    /// The child's process id; 0 before launch.
    virtual pid_t processIdentifier() const = 0;
    virtual bool isRunning() = 0;
    /// Sends SIGTERM if the child was launched and not yet reaped.
    virtual void terminate() = 0;
    /// Returns at once when the child was never launched.
    virtual void waitUntilExit() = 0;
    /// The exit code, or 128 + signal number for a child ended by a signal. -1 until the
    /// child is known to have ended.
    virtual int terminationStatus() const = 0;
};
