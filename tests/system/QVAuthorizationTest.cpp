// Administrator rights: system directories refused by the library, the refusals made before
// anything is asked for, and requests carried to the runner intact.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include "FakeClock.h"
#include "FakeLocalPaths.h"
#include "FakeProcessRunner.h"
#include "QVAuthorization.h"
#include "SystemLog.h"
#include "TestFiles.h"

namespace {

// The runner started without pkexec: it runs as whoever runs the tests.
QVAuthorization::Approval directRunner() {
    QVAuthorization::Approval approval;
    approval.dialog = {};
    approval.runner = CARDSWEEP_AUTH_TOOL;
    return approval;
}

}  // namespace

TEST(QVAuthorizationTest, EveryDestructiveOperationRefusesSystemDirectoriesWithoutRunningAnything) {
    FakeProcessRunner processes;  // as root: a check that failed would show as a recorded rm
    FakeLocalPaths paths;
    const FakeClock clock;
    QVAuthorization authorization(processes, paths, clock, true);
    const SystemLog::Capture console;
    EXPECT_FALSE(authorization.authRemoveFile("/home"));
    EXPECT_FALSE(authorization.authTrashFile(paths.home()));
    EXPECT_FALSE(authorization.authMoveFile("/root", paths.home() + "/root"));
    EXPECT_EQ(
        console.lines(),
        (QStringList{"Unable to delete path /home because it is a system directory.",
                     "Unable to trash path " + paths.home() + " because it is a system directory.",
                     "Unable to move path /root because it is a system directory."}));
    // The system's own trees are refused too, before any tool runs.
    EXPECT_FALSE(authorization.authRemoveFile("/usr"));
    EXPECT_FALSE(authorization.authRemoveFile("/usr/lib/"));
    EXPECT_FALSE(authorization.authMoveFile("/etc", paths.home() + "/etc"));
    EXPECT_TRUE(processes.calls().empty()) << processes.commandLines().join('\n').toStdString();

    // Nothing to move and no tool: refused before anything is asked for.
    EXPECT_FALSE(authorization.authMoveFile(paths.home() + "/missing", paths.home() + "/b"));
    EXPECT_FALSE(authorization.authMoveFile(QString(), paths.home() + "/b"));
    EXPECT_EQ(authorization.authExecTask("/no/such/tool", {}), -2);
    EXPECT_TRUE(console.contains("Unable to execute task: path /no/such/tool doesn't exist"));
    EXPECT_TRUE(processes.calls().empty());

    // As root the tools run directly, and nothing asks.
    processes.answer("rm", FakeProcessRunner::exited(0));
    ASSERT_TRUE(QDir().mkpath(paths.home() + "/shots"));
    EXPECT_TRUE(authorization.authRemoveFile(paths.home() + "/shots/A001"));
    EXPECT_EQ(processes.commandLines(),
              QStringList{"/bin/rm -Rdf " + paths.home() + "/shots/A001"});
}

TEST(QVAuthorizationTest, OneApprovalCarriesEveryRequestWordForWord) {
    FakeProcessRunner processes;
    processes.setRunsAsRoot(false);  // so the runner, not the fake, does the work
    processes.passThrough(CARDSWEEP_AUTH_TOOL);
    FakeLocalPaths paths;
    QTemporaryDir work;
    const QString odd = work.filePath("a b\n\"$(reboot)\" -rf");
    const QString source = TestFiles::write(work.filePath("source"));
    const SystemLog::Capture console;
    {
        const FakeClock clock;
        QVAuthorization authorization(processes, paths, clock, true, directRunner());
        EXPECT_EQ(authorization.authExecTask("/bin/sh", {"-c", "true"}), 126);
        EXPECT_FALSE(authorization.isAuthorized()) << "refused before anyone is asked";
        EXPECT_TRUE(authorization.authCopyFile(source, odd));
        EXPECT_TRUE(authorization.isAuthorized()) << "kept for the next request";
        EXPECT_TRUE(QFileInfo::exists(odd));
        EXPECT_TRUE(authorization.authCreateDir(work.filePath("x/y/z")));
        EXPECT_TRUE(QFileInfo(work.filePath("x/y/z")).isDir());
        EXPECT_TRUE(authorization.authMoveFile(odd, work.filePath("moved")));
        EXPECT_TRUE(QFileInfo::exists(work.filePath("moved")));
        EXPECT_EQ(authorization.authExecTask("/bin/rmdir", {"/usr"}), 126);
        authorization.authEnd();
        EXPECT_FALSE(authorization.isAuthorized());
    }
    EXPECT_TRUE(processes.calls().empty());

    // No dialog allowed and no root: nothing runs.
    const FakeClock clock;
    QVAuthorization headless(processes, paths, clock, false, directRunner());
    EXPECT_FALSE(headless.canAuthorize());
    EXPECT_EQ(headless.authExecTask("/bin/rm", {"-Rdf", work.filePath("moved")}), -1);
    EXPECT_TRUE(console.contains("Unable to authorize"));
    EXPECT_TRUE(QFileInfo::exists(work.filePath("moved")));
}
