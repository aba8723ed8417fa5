#pragma once
// Runs command-line tools (full path plus argument vector, never a shell): wait for them, capture
// what they print, return their exit status, time them out, or stream their output to a delegate.
//
// A front over the ProcessRunner that AppContext installs once: every child is made and every
// launch path checked by it, this class only adds the reading order, the time-out watchdog and
// the delivery to a delegate. Without an installed runner nothing runs ("not executable").
//
// Class-level operations need no instance. Timed and asynchronous runs need one made by create(),
// because their watchdog and reading threads keep the instance alive while they last.

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "ChildProcess.h"

class ProcessRunner;

class QVTaskEx : public std::enable_shared_from_this<QVTaskEx> {
    struct Token {
        explicit Token() = default;
    };

  public:
    /// Text encodings of the string variants (ASCII decodes bytes as Latin-1, never failing).
    enum class Encoding { ASCII = 1, UTF8 = 4, Latin1 = 5 };
    using Environment = ChildProcess::Environment;
    /// Receives each piece of output, this instance, and the object given with the run.
    using Delegate =
        std::function<void(const QByteArray& data, QVTaskEx& task, const QVariant& object)>;

    /// Holds the child of a run so another thread can reach it (e.g. to terminate it).
    class TaskSlot {
      public:
        void set(std::shared_ptr<ChildProcess> task);
        std::shared_ptr<ChildProcess> task() const;
        std::shared_ptr<ChildProcess> take();
        void clear() { set(nullptr); }

      private:
        mutable std::mutex mutex_;
        std::shared_ptr<ChildProcess> task_;  // guarded by mutex_
    };

    /// The runner every run goes through. Called by AppContext only, once, on the main thread
    /// before any run; runner outlives every run. Runs read it from any thread. Returns the
    /// runner installed before (null at first; with none, nothing runs).
    static ProcessRunner* install(ProcessRunner* runner);

    static std::shared_ptr<QVTaskEx> create();
    explicit QVTaskEx(Token) {}
    ~QVTaskEx();
    QVTaskEx(const QVTaskEx&) = delete;
    QVTaskEx& operator=(const QVTaskEx&) = delete;

    // ---- Class-level runs. Each first checks the launch path: it must exist, be a regular
    // file and be executable; otherwise "Error: PATH is not executable" is logged and printed.

    /// Waits for exit with both outputs on the null device. True once the child has exited
    /// (terminated included); false for an unusable path or a failed launch (logged).
    /// The slot receives the child before launch and keeps it after.
    static bool runTask(const QString& path, const QStringList& arguments,
                        TaskSlot* taskSlot = nullptr);
    /// Starts the child with both outputs on the null device and returns without waiting;
    /// null for an unusable path.
    static std::shared_ptr<ChildProcess> runTaskAndReturn(const QString& path,
                                                          const QStringList& arguments);

    /// Captured output (see dataFromTask) decoded; "" (never null) when there was none.
    static QString stringFromTask(const QString& path, const QStringList& arguments,
                                  TaskSlot* taskSlot = nullptr);
    static QString stringFromTask(const QString& path, const QStringList& arguments,
                                  Encoding encoding, TaskSlot* taskSlot = nullptr);
    static QString stringFromTask(const QString& path, const QStringList& arguments,
                                  double timeout);
    static QString stringFromTask(const QString& path, const QStringList& arguments,
                                  Encoding encoding, double timeout);

    /// Reads standard output (when logOutput; otherwise the child prints to ours) and standard
    /// error until both end, not waiting for exit. Returns the output, or the errors when the
    /// output is empty; nullopt for an unusable path or a failure (logged and printed).
    /// The child's standard input is an empty pipe held open. The slot is cleared at the end.
    static std::optional<QByteArray> dataFromTask(
        const QString& path, const QStringList& arguments, TaskSlot* taskSlot,
        const std::optional<Environment>& environment = std::nullopt, bool logOutput = true);

    /// Waits for exit with both outputs on the null device and returns the exit status
    /// (128 + signal for a signalled child); -1 for an unusable path.
    /// Throws QVException when the child cannot be started.
    static int terminationCodeFromTask(const QString& path, const QStringList& arguments,
                                       TaskSlot* taskSlot = nullptr);

    /// The timed forms on a fresh instance (see the instance operations below).
    static bool runTask(const QString& path, const QStringList& arguments, double timeout);
    static std::optional<QByteArray> dataFromTask(const QString& path, const QStringList& arguments,
                                                  double timeout);
    static int terminationCodeFromTask(const QString& path, const QStringList& arguments,
                                       double timeout);

    // ---- Timed runs. A watchdog thread sleeps the time-out truncated to whole seconds, then
    // runs timeout() on the main thread and waits for it; so a time-out only fires while the
    // main thread runs its event loop. The result is the untimed form's for a terminated child.

    bool runTaskWithTimeout(const QString& path, const QStringList& arguments, double timeout);
    std::optional<QByteArray> dataFromTaskWithTimeout(const QString& path,
                                                      const QStringList& arguments, double timeout);
    int terminationCodeFromTaskWithTimeout(const QString& path, const QStringList& arguments,
                                           double timeout);

    /// The watchdog's body: sleeps, then runs timeout() on the main thread.
    void setupTimeout(int seconds);
    /// Sends SIGTERM to theTask if it still runs, logging "Task PATH timed out. Terminating...".
    void timeout();

    // ---- Asynchronous runs. Output is read on a thread of the run's own and handed to the
    // delegate piece by piece, in order, then once empty; after that the delegate is released.

    /// Replaces the previous delegate and object, prepares theTask (output to a pipe, errors
    /// to the null device, input inherited) and starts launchAsyncTask on a new thread.
    void asyncDataFromTask(const QString& path, const QStringList& arguments, Delegate delegate,
                           const QVariant& object = QVariant(),
                           const std::optional<Environment>& environment = std::nullopt);
    /// The body of an asynchronous run: launches theTask and delivers its output.
    void launchAsyncTask();
    /// Hands one piece to the delegate; an empty piece (end of output) also ends the run.
    void asyncTaskReturnData(const QByteArray& data);
    /// Stops the run: closes the output pipe, releases the delegate and object, terminates
    /// the child if it still runs and clears theTask. Safe from any thread and the delegate.
    void terminateAsyncTask();
    void terminateTask() { terminateAsyncTask(); }

    std::shared_ptr<ChildProcess> theTask() const { return theTask_.task(); }
    void setTheTask(std::shared_ptr<ChildProcess> task) { theTask_.set(std::move(task)); }

  private:
    struct Watchdog;

    static bool isUsableLaunchPath(const QString& path);
    static bool checkLaunchPath(const QString& path);
    static QString decode(const std::optional<QByteArray>& data, Encoding encoding);
    static std::shared_ptr<ChildProcess> makeTask(
        const QString& path, const QStringList& arguments, ChildProcess::Channel output,
        ChildProcess::Channel error, ChildProcess::Channel input = ChildProcess::Channel::Inherit,
        const std::optional<Environment>& environment = std::nullopt);
    static QByteArray captureOutput(ChildProcess& task, bool logOutput);

    void runTimed(double timeout, const std::function<void(TaskSlot*)>& run);
    void watch(const std::shared_ptr<Watchdog>& watchdog, int seconds);
    void runAsync(const std::shared_ptr<ChildProcess>& task);
    bool isCurrentAsyncTask(const std::shared_ptr<ChildProcess>& task) const;

    TaskSlot theTask_;
    mutable std::mutex delegateMutex_;
    Delegate delegate_;  // guarded by delegateMutex_; "set" is the selector being set
    QVariant object_;    // guarded by delegateMutex_
};
