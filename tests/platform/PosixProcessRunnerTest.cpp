// Real, harmless programs through the runner: what they print and return, time-outs that
// end and reap the child without an event loop, arguments that stay plain data.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <QElapsedTimer>
#include <QFileInfo>
#include <thread>

#include "PosixProcessRunner.h"

namespace {

// True when a child of this process has ended without being reaped.
bool zombieChildLeft() {
    siginfo_t info{};
    const int rc = ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT);
    return rc == 0 && info.si_pid != 0;
}

}  // namespace

TEST(PosixProcessRunnerTest, ProgramsByPathOrNameGetTheirArgumentsVerbatim) {
    PosixProcessRunner runner;
    // Found on PATH by name, with a time-out it never reaches; no shell sees the words.
    const QString hostile =
        QStringLiteral("-n \"quoted\" 'single' $(touch /tmp/cardsweep-pwned) `id` ; |\nline2 \\ *");
    const ProcessResult printed = runner.run(QStringLiteral("printf"), {"%s", hostile}, 30);
    EXPECT_TRUE(printed.started && !printed.timedOut && printed.exitCode == 0);
    EXPECT_EQ(printed.output, hostile.toUtf8());
    EXPECT_FALSE(QFileInfo::exists(QStringLiteral("/tmp/cardsweep-pwned")));
    EXPECT_EQ(runner.run(QStringLiteral("/bin/false"), {}).exitCode, 1);

    // Nothing on stdout: the errors are what the caller gets.
    const ProcessResult missingFile =
        runner.run(QStringLiteral("/bin/ls"), {QStringLiteral("/cardsweep-no-such-folder")});
    EXPECT_TRUE(missingFile.started && missingFile.exitCode != 0);
    EXPECT_TRUE(missingFile.output.contains("cardsweep-no-such-folder"));

    for (const QString& program : {QStringLiteral("/cardsweep/no/such/program"),
                                   QStringLiteral("cardsweep-no-such-tool"), QString()}) {
        const ProcessResult missing = runner.run(program, {});
        EXPECT_TRUE(!missing.started && missing.exitCode == -1) << program.toStdString();
        EXPECT_FALSE(runner.start(program, {})) << program.toStdString();
    }
    EXPECT_TRUE(runner.start(QStringLiteral("/bin/true"), {}));
}

TEST(PosixProcessRunnerTest, TimeOutsEndAndReapTheChildFromAnyThread) {
    PosixProcessRunner runner;
    ProcessResult slept;
    QElapsedTimer timer;
    timer.start();
    // A worker thread with no event loop, as eject and erase run.
    std::thread([&] {
        slept = runner.run(QStringLiteral("/bin/sleep"), {QStringLiteral("30")}, 1);
    }).join();
    EXPECT_LT(timer.elapsed(), 10'000);
    EXPECT_TRUE(slept.started);
    EXPECT_TRUE(slept.timedOut);
    EXPECT_EQ(slept.exitCode, 128 + SIGTERM);
    EXPECT_FALSE(zombieChildLeft());

    // One that ignores SIGTERM is killed after a short grace.
    const QString python = QStringLiteral("/usr/bin/python3");
    if (!QFileInfo(python).isExecutable()) {
        GTEST_SKIP() << "no " << python.toStdString() << " to ignore SIGTERM with";
    }
    timer.restart();
    const ProcessResult stubborn = runner.run(
        python,
        {QStringLiteral("-c"),
         QStringLiteral("import signal, time\nsignal.signal(signal.SIGTERM, signal.SIG_IGN)\n"
                        "print('ready', flush=True)\ntime.sleep(30)")},
        3);
    EXPECT_LT(timer.elapsed(), 10'000);
    EXPECT_TRUE(stubborn.timedOut);
    EXPECT_EQ(stubborn.exitCode, 128 + SIGKILL);
    EXPECT_EQ(stubborn.output, QByteArray("ready\n"));  // what it printed before is kept
    EXPECT_FALSE(zombieChildLeft());
}
