// The task runner's front: every child comes from the installed runner, unusable or
// unstartable tools start nothing, and output and statuses are the tool's. Nothing but tests
// calls it (its time-outs and asynchronous runs included), so only that much is checked here.

#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>

#include "FakeProcessRunner.h"
#include "LogTail.h"
#include "QVException.h"
#include "QVTaskEx.h"
#include "TestFiles.h"

namespace {

const QString kShell = QStringLiteral("/bin/sh");

QStringList shell(const QString& script) {
    return {QStringLiteral("-c"), script};
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
        EXPECT_EQ(QVTaskEx::dataFromTask(c.path, {}, nullptr), std::nullopt);
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

TEST(QVTaskExTest, ExitStatusesAreTheToolsAndAFailingToolStillRan) {
    EXPECT_EQ(QVTaskEx::terminationCodeFromTask(kShell, shell(QStringLiteral("exit 3"))), 3);
    EXPECT_EQ(QVTaskEx::terminationCodeFromTask(kShell, shell(QStringLiteral("kill -TERM $$"))),
              128 + SIGTERM);
    EXPECT_TRUE(QVTaskEx::runTask(kShell, shell(QStringLiteral("exit 1"))));
}
