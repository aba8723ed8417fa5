// The task runner's front: every child comes from the installed runner, unusable or
// unstartable tools start nothing, output is read in its order, time-outs stop the child, and
// asynchronous output reaches the delegate in order.

#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <thread>

#include "DetachedThreads.h"
#include "FakeProcessRunner.h"
#include "LogTail.h"
#include "QVException.h"
#include "QVTaskEx.h"
#include "TestFiles.h"

namespace {

const QString kShell = QStringLiteral("/bin/sh");
const QString kSleep = QStringLiteral("/bin/sleep");

QStringList shell(const QString& script) {
    return {QStringLiteral("-c"), script};
}

// Polls without handling events, so the main thread stays busy meanwhile.
template <typename Predicate>
bool eventually(Predicate predicate) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!predicate()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

}  // namespace

TEST(QVTaskExTest, EveryChildComesFromTheInstalledRunner) {
    FakeProcessRunner fake;  // knows only "tool", and makes no children
    fake.answer(QStringLiteral("tool"), FakeProcessRunner::exited(0));
    ProcessRunner* const real = QVTaskEx::install(&fake);
    const LogTail tail;
    EXPECT_EQ(QVTaskEx::terminationCodeFromTask(kShell, shell(QStringLiteral("exit 0"))), -1);
    EXPECT_THROW(QVTaskEx::terminationCodeFromTask(QStringLiteral("/opt/tool"), {}), QVException);
    QVTaskEx::install(nullptr);
    EXPECT_FALSE(QVTaskEx::runTask(kShell, shell(QStringLiteral("exit 0"))));
    QVTaskEx::install(real);
    EXPECT_TRUE(tail.text().contains(QStringLiteral("Error: /bin/sh is not executable")));
}

TEST(QVTaskExTest, UnusableOrUnstartableToolsStartNothing) {
    QTemporaryDir dir;
    const QString plain = TestFiles::write(dir.filePath(QStringLiteral("plain.sh")), "#!/bin/sh\n");
    const QString junk = TestFiles::write(dir.filePath(QStringLiteral("junk")), "\x01\x02 junk");
    ASSERT_TRUE(QFile::setPermissions(junk, QFile::ReadOwner | QFile::ExeOwner));
    struct Case {
        QString path;
        QString logged;  // empty: nothing to log
    };
    const QString unusable = QStringLiteral("Error: %1 is not executable");
    const QString missing = dir.filePath(QStringLiteral("missing"));
    for (const Case& c :
         {Case{dir.path(), unusable.arg(dir.path())}, Case{plain, unusable.arg(plain)},
          Case{missing, unusable.arg(missing)}, Case{QString(), {}},
          Case{junk, QStringLiteral("Exception running task %1: ").arg(junk)}}) {
        SCOPED_TRACE(c.path.toStdString());
        const LogTail tail;
        EXPECT_FALSE(QVTaskEx::runTask(c.path, {}));
        EXPECT_EQ(QVTaskEx::runTaskAndReturn(c.path, {}), nullptr);
        EXPECT_EQ(QVTaskEx::dataFromTask(c.path, {}, nullptr), std::nullopt);
        const QString text = QVTaskEx::stringFromTask(c.path, {}, 1.0);
        EXPECT_TRUE(text.isEmpty() && !text.isNull());
        if (c.path == junk) {
            EXPECT_THROW(QVTaskEx::terminationCodeFromTask(c.path, {}), QVException);
        } else {
            EXPECT_EQ(QVTaskEx::terminationCodeFromTask(c.path, {}), -1);
        }
        EXPECT_TRUE(tail.text().contains(c.logged));
    }
}

TEST(QVTaskExTest, CapturingRunReturnsOutputElseErrorsAndNeverStalls) {
    const auto data = [](const QString& script) {
        return QVTaskEx::dataFromTask(kShell, shell(script), nullptr);
    };
    EXPECT_EQ(data(QStringLiteral("echo oops >&2")), QByteArray("oops\n"));
    EXPECT_EQ(data(QStringLiteral("echo out; echo err >&2")), QByteArray("out\n"));
    EXPECT_EQ(data(QStringLiteral("true")), QByteArray());
    // Output left to our own stdout: only the errors come back.
    EXPECT_EQ(QVTaskEx::dataFromTask(kShell, shell(QStringLiteral("echo out; echo err >&2")),
                                     nullptr, std::nullopt, false),
              QByteArray("err\n"));
    // More than a pipe holds on both streams at once arrives whole, without a stall.
    EXPECT_EQ(data(QStringLiteral("head -c 300000 /dev/zero; echo e >&2")),
              QByteArray(300000, '\0'));
    EXPECT_EQ(data(QStringLiteral("head -c 300000 /dev/zero >&2; echo done")),
              QByteArray("done\n"));
    // A tool reading its input sees an open pipe, not the test's terminal.
    EXPECT_EQ(data(QStringLiteral("[ -p /dev/stdin ] && echo pipe")), QByteArray("pipe\n"));

    const QStringList eAcute = shell(QStringLiteral("printf '\\303\\251'"));
    EXPECT_EQ(QVTaskEx::stringFromTask(kShell, eAcute, QVTaskEx::Encoding::UTF8),
              QString(QChar(0xE9)));
    EXPECT_EQ(QVTaskEx::stringFromTask(kShell, eAcute), QStringLiteral("\u00C3\u00A9"));

    const QString show = QStringLiteral(
        "printf '%s|%s' \"${CARDSWEEP_TASK_VALUE-unset}\" \"${CARDSWEEP_TASK_PARENT-unset}\"");
    qputenv("CARDSWEEP_TASK_PARENT", "inherited");
    const QVTaskEx::Environment environment{
        {QStringLiteral("CARDSWEEP_TASK_VALUE"), QStringLiteral("a b=c")}};
    EXPECT_EQ(QVTaskEx::dataFromTask(kShell, shell(show), nullptr, environment),
              QByteArray("a b=c|unset"));
    EXPECT_EQ(data(show), QByteArray("unset|inherited"));
    qunsetenv("CARDSWEEP_TASK_PARENT");
}

TEST(QVTaskExTest, ExitStatusesAndTerminationFromAnotherThread) {
    EXPECT_EQ(QVTaskEx::terminationCodeFromTask(kShell, shell(QStringLiteral("exit 3"))), 3);
    EXPECT_EQ(QVTaskEx::terminationCodeFromTask(kShell, shell(QStringLiteral("kill -TERM $$"))),
              128 + SIGTERM);
    EXPECT_TRUE(QVTaskEx::runTask(kShell, shell(QStringLiteral("exit 1"))))
        << "a failing tool is still a run that happened";

    QVTaskEx::TaskSlot slot;
    std::atomic<bool> result{false};
    std::thread runner([&] { result = QVTaskEx::runTask(kSleep, {QStringLiteral("60")}, &slot); });
    ASSERT_TRUE(eventually([&] { return slot.task() && slot.task()->isRunning(); }));
    slot.task()->terminate();
    runner.join();
    EXPECT_TRUE(result);
    EXPECT_EQ(slot.task()->terminationStatus(), 128 + SIGTERM);
}

TEST(QVTaskExTest, TimeOutTerminatesTheChildWhileTheMainLoopRuns) {
    const LogTail tail;
    const auto taskEx = QVTaskEx::create();
    int status = 0, later = -1;
    std::optional<QByteArray> partial;
    DetachedThreads::start([&] {
        status = taskEx->terminationCodeFromTaskWithTimeout(kSleep, {QStringLiteral("60")}, 0.9);
        // A finished run's watchdog leaves a later run of the same instance alone.
        later = taskEx->terminationCodeFromTaskWithTimeout(kSleep, {QStringLiteral("2")}, 30.0);
        partial = QVTaskEx::dataFromTask(
            kShell, shell(QStringLiteral("echo partial; exec /bin/sleep 60")), 1.0);
    });
    // The main thread stays busy until the first child runs: its watchdog (0.9 s fires at
    // once) waits for the main thread, and then stops it. Joining handles its events.
    EXPECT_TRUE(eventually([&] { return taskEx->theTask() && taskEx->theTask()->isRunning(); }));
    DetachedThreads::joinAll();

    EXPECT_EQ(status, 128 + SIGTERM);
    EXPECT_EQ(later, 0);
    EXPECT_EQ(taskEx->theTask(), nullptr);
    EXPECT_EQ(partial, QByteArray("partial\n"));
    const QString log = tail.text();
    EXPECT_TRUE(log.contains(QStringLiteral("Task /bin/sleep timed out. Terminating...")));
    EXPECT_TRUE(log.contains(QStringLiteral("Task /bin/sh timed out. Terminating...")));
}

TEST(QVTaskExTest, AsyncRunDeliversPiecesInOrderThenOneEmptyPieceOrStopsOnRequest) {
    struct Received {
        std::mutex mutex;
        QByteArray joined;  // guarded by mutex
        int empties = 0;    // guarded by mutex
        QVariant object;    // guarded by mutex
    };
    const auto received = std::make_shared<Received>();
    const auto delegate = [received](const QByteArray& data, QVTaskEx&, const QVariant& object) {
        const std::lock_guard lock(received->mutex);
        received->joined += data;
        received->empties += data.isEmpty() ? 1 : 0;
        received->object = object;
    };
    const auto taskEx = QVTaskEx::create();
    taskEx->asyncDataFromTask(
        kShell, shell(QStringLiteral("echo one; sleep 0.2; echo two >&2; echo three")), delegate,
        QStringLiteral("card"));
    ASSERT_TRUE(eventually([&] { return !taskEx->theTask(); }));
    {
        const std::lock_guard lock(received->mutex);
        EXPECT_EQ(received->joined, QByteArray("one\nthree\n"));
        EXPECT_EQ(received->empties, 1);
        EXPECT_EQ(received->object, QVariant(QStringLiteral("card")));
    }

    taskEx->asyncDataFromTask(kSleep, {QStringLiteral("60")}, delegate);
    ASSERT_TRUE(eventually([&] { return taskEx->theTask() && taskEx->theTask()->isRunning(); }));
    const std::shared_ptr<ChildProcess> child = taskEx->theTask();
    taskEx->terminateAsyncTask();
    EXPECT_EQ(taskEx->theTask(), nullptr);
    child->waitUntilExit();
    EXPECT_EQ(child->terminationStatus(), 128 + SIGTERM);
}
