// The tool runner: unusable paths, captured output and errors, verbatim arguments and
// environment, exit statuses, time-outs that stop the child, and asynchronous delivery.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <QFile>
#include <QTemporaryDir>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <thread>

#include "DetachedThreads.h"
#include "LogPlaces.h"
#include "QVException.h"
#include "QVLog.h"
#include "QVTaskEx.h"
#include "TestFiles.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

const QString kShell = QStringLiteral("/bin/sh");
const QString kSleep = QStringLiteral("/bin/sleep");

QStringList shell(const QString& script, const QStringList& positional = {}) {
    return QStringList{QStringLiteral("-c"), script, QStringLiteral("sh")} + positional;
}

// The lines logged since it was made.
class LogTail {
  public:
    LogTail() {
        QVLog::finishWriting();
        start_ = QFile(path()).size();
    }
    QString text() const {
        QVLog::finishWriting();
        const QByteArray log = TestFiles::read(path());
        return QString::fromUtf8(log.size() >= start_ ? log.mid(start_) : log);
    }

  private:
    static QString path() { return QVLog::sharedController().currentLogPath(); }
    qint64 start_ = 0;
};

template <typename Predicate>
bool eventually(Predicate predicate) {
    const auto deadline = Clock::now() + seconds(20);
    while (!predicate()) {
        if (Clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

bool wasReaped(pid_t pid) {
    return ::waitpid(pid, nullptr, WNOHANG) == -1 && errno == ECHILD;
}

class QVTaskExTest : public testing::Test {
  protected:
    // Earlier suites may leave the writer on a log in a home that is gone.
    static void SetUpTestSuite() { QVLog::createNewLog(LogPlaces::forCurrentUser()); }
    // Every watchdog and reading thread of these runs has ended or been woken by now.
    static void TearDownTestSuite() { DetachedThreads::joinAll(); }

    QString writeFile(const QString& name, const QByteArray& contents,
                      QFile::Permissions permissions) {
        const QString path = TestFiles::write(dir_.filePath(name), contents);
        EXPECT_TRUE(QFile::setPermissions(path, permissions));
        return path;
    }

    QTemporaryDir dir_;
};

}  // namespace

TEST_F(QVTaskExTest, UnusableLaunchPathsStartNothing) {
    const QString script = writeFile(QStringLiteral("plain.sh"), "#!/bin/sh\necho ran\n",
                                     QFile::ReadOwner | QFile::WriteOwner);
    const QStringList paths{dir_.path(), script, dir_.filePath(QStringLiteral("missing")),
                            QString()};
    for (const QString& path : paths) {
        SCOPED_TRACE(path.toStdString());
        const LogTail tail;
        EXPECT_FALSE(QVTaskEx::runTask(path, {}));
        EXPECT_FALSE(QVTaskEx::runTask(path, {}, 1.0));
        EXPECT_EQ(QVTaskEx::runTaskAndReturn(path, {}), nullptr);
        EXPECT_EQ(QVTaskEx::dataFromTask(path, {}, nullptr), std::nullopt);
        const QString text = QVTaskEx::stringFromTask(path, {});
        EXPECT_TRUE(text.isEmpty() && !text.isNull());
        EXPECT_EQ(QVTaskEx::terminationCodeFromTask(path, {}), -1);
        EXPECT_EQ(QVTaskEx::terminationCodeFromTask(path, {}, 1.0), -1);
        if (!path.isEmpty()) {
            EXPECT_TRUE(
                tail.text().contains(QStringLiteral("Error: %1 is not executable").arg(path)));
        }
    }
}

TEST_F(QVTaskExTest, CapturingRunReturnsOutputElseErrors) {
    EXPECT_EQ(QVTaskEx::dataFromTask(kShell, shell(QStringLiteral("echo oops >&2")), nullptr),
              QByteArray("oops\n"));
    EXPECT_EQ(QVTaskEx::stringFromTask(kShell, shell(QStringLiteral("echo out; echo err >&2"))),
              QStringLiteral("out\n"));
    // Output left to our own stdout: only the errors come back.
    EXPECT_EQ(QVTaskEx::dataFromTask(kShell, shell(QStringLiteral("echo out; echo err >&2")),
                                     nullptr, std::nullopt, false),
              QByteArray("err\n"));

    EXPECT_EQ(QVTaskEx::dataFromTask(QStringLiteral("/bin/true"), {}, nullptr), QByteArray());
    const QString empty = QVTaskEx::stringFromTask(QStringLiteral("/bin/true"), {});
    EXPECT_TRUE(empty.isEmpty() && !empty.isNull());

    // More than a pipe holds, and on both streams at once, arrives whole.
    EXPECT_EQ(QVTaskEx::dataFromTask(
                  kShell, shell(QStringLiteral("head -c 300000 /dev/zero; echo e >&2")), nullptr),
              QByteArray(300000, '\0'));

    // Errors flooding in before the output ends don't stall the tool on a full pipe.
    const std::optional<QByteArray> flood = QVTaskEx::dataFromTask(
        kShell, shell(QStringLiteral("head -c 300000 /dev/zero >&2; echo done")), nullptr);
    EXPECT_EQ(flood, QByteArray("done\n"));

    // A tool reading its input sees an open pipe, not the test's terminal.
    EXPECT_EQ(
        QVTaskEx::stringFromTask(kShell, shell(QStringLiteral("[ -p /dev/stdin ] && echo pipe"))),
        QStringLiteral("pipe\n"));

    const QStringList eAcute = shell(QStringLiteral("printf '\\303\\251'"));
    EXPECT_EQ(QVTaskEx::stringFromTask(kShell, eAcute, QVTaskEx::Encoding::UTF8),
              QString(QChar(0xE9)));
    EXPECT_EQ(QVTaskEx::stringFromTask(kShell, eAcute), QStringLiteral("\u00C3\u00A9"));
}

TEST_F(QVTaskExTest, ArgumentsAndEnvironmentArriveVerbatim) {
    const QStringList tricky{QStringLiteral("it's \"quoted\""),
                             QStringLiteral("$(touch pwned)"),
                             QStringLiteral("two\nlines"),
                             QStringLiteral("-n"),
                             QString(),
                             QStringLiteral("caf\u00E9")};
    const QString printed = QVTaskEx::stringFromTask(
        kShell, shell(QStringLiteral("for a; do printf '[%s]' \"$a\"; done"), tricky),
        QVTaskEx::Encoding::UTF8);
    EXPECT_EQ(printed,
              QStringLiteral("[it's \"quoted\"][$(touch pwned)][two\nlines][-n][][caf\u00E9]"));

    const QString show = QStringLiteral(
        "printf '%s|%s' \"${CARDSWEEP_TASK_VALUE-unset}\" "
        "\"${CARDSWEEP_TASK_PARENT-unset}\"");
    qputenv("CARDSWEEP_TASK_PARENT", "inherited");
    const QVTaskEx::Environment environment{
        {QStringLiteral("CARDSWEEP_TASK_VALUE"), QStringLiteral("a b=c")}};
    EXPECT_EQ(QVTaskEx::dataFromTask(kShell, shell(show), nullptr, environment),
              QByteArray("a b=c|unset"));
    EXPECT_EQ(QVTaskEx::dataFromTask(kShell, shell(show), nullptr), QByteArray("unset|inherited"));
    qunsetenv("CARDSWEEP_TASK_PARENT");
}

TEST_F(QVTaskExTest, ExitStatusesAndTerminationFromAnotherThread) {
    EXPECT_EQ(QVTaskEx::terminationCodeFromTask(QStringLiteral("/bin/true"), {}), 0);
    EXPECT_EQ(QVTaskEx::terminationCodeFromTask(kShell, shell(QStringLiteral("exit 3"))), 3);
    EXPECT_EQ(QVTaskEx::terminationCodeFromTask(kShell, shell(QStringLiteral("kill -TERM $$"))),
              128 + SIGTERM);
    // A failing tool is still a run that happened.
    EXPECT_TRUE(QVTaskEx::runTask(kShell, shell(QStringLiteral("exit 1"))));

    // The slot lets this thread stop a run that blocks another one.
    QVTaskEx::TaskSlot slot;
    std::atomic<bool> result{false};
    std::thread runner([&] { result = QVTaskEx::runTask(kSleep, {QStringLiteral("60")}, &slot); });
    ASSERT_TRUE(eventually([&] { return slot.task() && slot.task()->isRunning(); }));
    slot.task()->terminate();
    runner.join();
    EXPECT_TRUE(result);
    EXPECT_EQ(slot.task()->terminationStatus(), 128 + SIGTERM);
    EXPECT_TRUE(wasReaped(slot.task()->processIdentifier()));
}

TEST_F(QVTaskExTest, ToolsThatCannotBeStartedAreReported) {
    const QString junk = writeFile(QStringLiteral("junk"), QByteArray("\x01\x02 not a program"),
                                   QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    const LogTail tail;
    EXPECT_FALSE(QVTaskEx::runTask(junk, {}));
    EXPECT_EQ(QVTaskEx::dataFromTask(junk, {}, nullptr), std::nullopt);
    EXPECT_EQ(QVTaskEx::stringFromTask(junk, {}), QString());
    EXPECT_EQ(QVTaskEx::runTaskAndReturn(junk, {}), nullptr);
    EXPECT_THROW(QVTaskEx::terminationCodeFromTask(junk, {}), QVException);
    EXPECT_TRUE(tail.text().contains(QStringLiteral("Exception running task %1: ").arg(junk)));
}

TEST_F(QVTaskExTest, TimeOutTerminatesTheChildWhileTheMainLoopRuns) {
    const LogTail tail;
    const auto taskEx = QVTaskEx::create();
    int status = 0, finished = -1, later = -1;
    bool ran = false;
    std::optional<QByteArray> partial;
    DetachedThreads::start([&] {
        status = taskEx->terminationCodeFromTaskWithTimeout(kSleep, {QStringLiteral("60")}, 0.9);
        // A finished run's watchdog leaves a later run of the same instance alone.
        finished = taskEx->terminationCodeFromTaskWithTimeout(QStringLiteral("/bin/true"), {}, 1.0);
        later = taskEx->terminationCodeFromTaskWithTimeout(kSleep, {QStringLiteral("2")}, 30.0);
        ran = QVTaskEx::runTask(kSleep, {QStringLiteral("60")}, 5.0);
        partial = QVTaskEx::dataFromTask(
            kShell, shell(QStringLiteral("echo partial; exec /bin/sleep 60")), 1.0);
    });
    // Keep the main thread busy until the first child runs: its watchdog (0.9 s fires at
    // once) waits for the main thread, and then stops it. Joining there handles its events.
    EXPECT_TRUE(eventually([&] { return taskEx->theTask() && taskEx->theTask()->isRunning(); }));
    DetachedThreads::joinAll();

    EXPECT_EQ(status, 128 + SIGTERM);
    EXPECT_EQ(finished, 0);
    EXPECT_EQ(later, 0);
    EXPECT_EQ(taskEx->theTask(), nullptr);
    EXPECT_TRUE(ran);
    EXPECT_EQ(partial, QByteArray("partial\n"));
    const QString log = tail.text();
    EXPECT_TRUE(log.contains(QStringLiteral("Task /bin/sleep timed out. Terminating...")));
    EXPECT_TRUE(log.contains(QStringLiteral("Task /bin/sh timed out. Terminating...")));
}

namespace {

// Records what a delegate receives, for a test thread to wait on.
struct Received {
    std::mutex mutex;
    std::condition_variable changed;
    QList<QByteArray> pieces;  // guarded by mutex
    QVariant object;           // guarded by mutex
    bool sameInstance = true;  // guarded by mutex

    QVTaskEx::Delegate delegate(const std::shared_ptr<QVTaskEx>& expected,
                                const std::shared_ptr<int>& lifetime) {
        return [this, expected = expected.get(), lifetime](const QByteArray& data, QVTaskEx& task,
                                                           const QVariant& passed) {
            const std::lock_guard lock(mutex);
            pieces << data;
            object = passed;
            sameInstance = sameInstance && &task == expected;
            changed.notify_all();
        };
    }
    // With no count: until the empty piece that ends the run.
    bool waitFor(qsizetype count = -1) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, seconds(20), [&] {
            return count < 0 ? !pieces.isEmpty() && pieces.last().isEmpty()
                             : pieces.size() >= count;
        });
    }
};

}  // namespace

TEST_F(QVTaskExTest, AsyncRunDeliversPiecesInOrderThenOneEmptyPiece) {
    const auto taskEx = QVTaskEx::create();
    Received received;
    auto lifetime = std::make_shared<int>(0);
    const std::weak_ptr<int> delegateAlive = lifetime;
    taskEx->asyncDataFromTask(
        kShell,
        shell(
            QStringLiteral("echo one; sleep 0.2; echo two >&2; echo three; sleep 0.2; echo four")),
        received.delegate(taskEx, lifetime), QStringLiteral("card"));
    lifetime.reset();
    ASSERT_TRUE(received.waitFor());
    ASSERT_TRUE(eventually([&] { return delegateAlive.expired() && !taskEx->theTask(); }));

    const std::lock_guard lock(received.mutex);
    QByteArray joined;
    for (qsizetype i = 0; i + 1 < received.pieces.size(); ++i) {
        EXPECT_FALSE(received.pieces[i].isEmpty());
        joined += received.pieces[i];
    }
    EXPECT_EQ(joined, QByteArray("one\nthree\nfour\n"));
    EXPECT_EQ(received.object, QVariant(QStringLiteral("card")));
    EXPECT_TRUE(received.sameInstance);
}

TEST_F(QVTaskExTest, AsyncRunStopsOnRequestAndReportsWhatItCannotRun) {
    const auto taskEx = QVTaskEx::create();
    Received received;
    auto lifetime = std::make_shared<int>(0);
    const std::weak_ptr<int> delegateAlive = lifetime;
    taskEx->asyncDataFromTask(kShell, shell(QStringLiteral("echo started; exec /bin/sleep 60")),
                              received.delegate(taskEx, lifetime));
    lifetime.reset();
    ASSERT_TRUE(received.waitFor(1));
    const std::shared_ptr<QVTask> child = taskEx->theTask();
    ASSERT_NE(child, nullptr);
    taskEx->terminateAsyncTask();
    EXPECT_EQ(taskEx->theTask(), nullptr);
    // A delivery still under way holds its own reference until it returns.
    EXPECT_TRUE(eventually([&] { return delegateAlive.expired(); }));
    child->waitUntilExit();
    EXPECT_EQ(child->terminationStatus(), 128 + SIGTERM);

    const LogTail tail;
    QVTaskEx::create()->launchAsyncTask();
    taskEx->asyncDataFromTask(dir_.path(), {}, received.delegate(taskEx, nullptr));
    ASSERT_TRUE(eventually([&] {
        return tail.text().contains(QStringLiteral(
            "Unable to launch async task - task does not exist or is not executable"));
    }));
    EXPECT_TRUE(tail.text().contains(QStringLiteral("Unable to launch async task - no task set")));
}
