#pragma once
// The application's single log writer: dated lines into a rotating set of five files in
// the user's log folder, written one at a time on a background queue.
//
// Thread-safety: every operation may be called from any thread. finishWriting() must not
// be called from the writer's own thread (appendLog() knows to skip its wait there).

#include <QString>
#include <QStringList>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "QVFormat.h"

class Clock;
class QFile;

class QVLog {
  public:
    static QVLog& sharedController();

    /// Where the logs go, told by whoever creates the log (the log reaches no other service).
    struct Places {
        QString folder;              // rotated logs: NAME.1.log ... NAME.5.log
        QString currentFolder;       // where NAME.1.log is written (elsewhere when elevated)
        QString globalSettingsFile;  // holds the maker's shared "disable-logging" switch
    };

    /// Rotates the logs in places.folder and starts a new current log with its header; lines
    /// are stamped by clock. A name is taken only when none was set before.
    static void createNewLog(const Places& places, std::shared_ptr<const Clock> clock,
                             const QString& name = QString());

    /// Formats and queues a line; short lines from worker threads wait until written.
    template <typename... Args>
    static void appendLog(QStringView format, const Args&... arguments) {
        sharedController().appendFormatted(QVFormat::format(format, arguments...), true);
    }
    /// Formats and queues a line without ever waiting.
    template <typename... Args>
    static void fastAppendLog(QStringView format, const Args&... arguments) {
        sharedController().appendFormatted(QVFormat::format(format, arguments...), false);
    }
    /// Logs the line (its text read once more as a format) and prints it to standard
    /// output with every "%" doubled.
    template <typename... Args>
    static void appendLogAndPrint(QStringView format, const Args&... arguments) {
        sharedController().logAndPrint(QVFormat::format(format, arguments...));
    }

    /// Trims an already formatted line and queues it; blank lines are dropped.
    void appendTextToLog(const QString& text);

    /// Blocks until every queued line is on disk.
    static void finishWriting();

    /// Full paths of the existing log files, newest (1) first.
    static QStringList availableLogs();

    /// Flushes (unless 20 or more lines are pending) and closes the log at exit.
    void willTerminate();

    QString appName() const;
    void setAppName(const QString& name);
    std::uint64_t bytesWritten() const { return bytesWritten_; }
    std::uint64_t bytesInQueue() const { return bytesInQueue_; }
    bool loggingDisabled() const { return loggingDisabled_; }
    void setLoggingDisabled(bool disabled) { loggingDisabled_ = disabled; }

    /// The log folder as the log was told it, and the current log path.
    static QString logFolder();
    QString currentLogPath() const;

    ~QVLog();
    QVLog(const QVLog&) = delete;
    QVLog& operator=(const QVLog&) = delete;

  private:
    QVLog();

    void appendFormatted(const QString& text, bool mayWait);
    void logAndPrint(const QString& text);
    void startNewLog(const QString& name);
    void appendLogOnThread(const QString& text);
    void writeLine(const QString& text);
    void writeHeader();
    void enqueue(std::function<void()> operation);
    /// Queues operation and returns once the writer has run it (or the log is going).
    void runOnWriter(std::function<void()> operation);
    void waitUntilIdle();
    void runQueue();
    bool onWriterThread() const;
    QString logPathForIndex(const QString& folder, int index) const;

    mutable std::mutex nameMutex_;
    Places places_;    // guarded by nameMutex_
    QString appName_;  // guarded by nameMutex_

    // Touched only on the writer thread, or by createNewLog before anything is queued.
    std::unique_ptr<QFile> fileHandle_;
    std::shared_ptr<const Clock> clock_;  // set whenever fileHandle_ is

    std::atomic<std::uint64_t> bytesWritten_{0};
    std::atomic<std::uint64_t> bytesInQueue_{0};
    std::atomic<bool> loggingDisabled_{false};

    bool queueIsEmpty();

    std::mutex queueMutex_;
    // The writer is woken only when it sleeps, and waiters for an idle queue only when it
    // empties: a line costs no system call while the writer is busy.
    std::condition_variable workArrived_;
    std::condition_variable becameIdle_;
    std::condition_variable operationRan_;
    std::deque<std::function<void()>> writeQueue_;  // guarded by queueMutex_
    bool busy_ = false;                             // guarded by queueMutex_
    bool writerAsleep_ = false;                     // guarded by queueMutex_
    int idleWaiters_ = 0;                           // guarded by queueMutex_
    bool stopping_ = false;                         // guarded by queueMutex_
    std::thread writer_;
};
