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

TEST(PosixProcessRunnerTest, CapturesOutputAndExitCodesOfProgramsFoundByPathOrName) {
    PosixProcessRunner runner;
    const ProcessResult echo = runner.run(QStringLiteral("/bin/echo"), {QStringLiteral("hello")});
    EXPECT_TRUE(echo.started);
    EXPECT_FALSE(echo.timedOut);
    EXPECT_EQ(echo.exitCode, 0);
    EXPECT_EQ(echo.output, QByteArray("hello\n"));

    EXPECT_EQ(runner.run(QStringLiteral("/bin/false"), {}).exitCode, 1);
    // Found on PATH by name, with a time-out it never reaches.
    const ProcessResult byName =
        runner.run(QStringLiteral("printf"), {QStringLiteral("%s"), QStringLiteral("x")}, 30);
    EXPECT_EQ(byName.output, QByteArray("x"));
    EXPECT_FALSE(byName.timedOut);

    // Nothing on stdout: the errors are what the caller gets.
    const ProcessResult missingFile =
        runner.run(QStringLiteral("/bin/ls"), {QStringLiteral("/cardsweep-no-such-folder")});
    EXPECT_TRUE(missingFile.started);
    EXPECT_NE(missingFile.exitCode, 0);
    EXPECT_TRUE(missingFile.output.contains("cardsweep-no-such-folder"));

    for (const QString& program : {QStringLiteral("/cardsweep/no/such/program"),
                                   QStringLiteral("cardsweep-no-such-tool"), QString()}) {
        const ProcessResult missing = runner.run(program, {});
        EXPECT_FALSE(missing.started) << program.toStdString();
        EXPECT_EQ(missing.exitCode, -1);
        EXPECT_FALSE(runner.start(program, {})) << program.toStdString();
    }
    EXPECT_TRUE(runner.start(QStringLiteral("/bin/true"), {}));
}

TEST(PosixProcessRunnerTest, ArgumentsReachTheProgramVerbatim) {
    PosixProcessRunner runner;
    const QString hostile =
        QStringLiteral("-n \"quoted\" 'single' $(touch /tmp/cardsweep-pwned) `id` ; |\nline2 \\ *");
    const ProcessResult result =
        runner.run(QStringLiteral("/bin/printf"), {QStringLiteral("%s"), hostile});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output, hostile.toUtf8());
    EXPECT_FALSE(QFileInfo::exists(QStringLiteral("/tmp/cardsweep-pwned")));
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
