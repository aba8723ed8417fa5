// Administrator rights: system directories refused by the library and by the runner, the
// refusals made before anything is asked for, and requests carried to the runner intact.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include "FakeLocalPaths.h"
#include "FakeProcessRunner.h"
#include "QVAuthorization.h"
#include "SystemLog.h"

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
    QVAuthorization authorization(processes, paths, true);
    const SystemLog::Capture console;
    EXPECT_FALSE(authorization.authRemoveFile("/home"));
    EXPECT_FALSE(authorization.authTrashFile(paths.home()));
    EXPECT_FALSE(authorization.authTrashFolderContents("/media"));
    EXPECT_FALSE(authorization.authMoveFolderContents("/mnt", paths.home()));
    EXPECT_FALSE(authorization.authMoveFile("/root", paths.home() + "/root"));
    EXPECT_EQ(
        console.lines(),
        (QStringList{"Unable to delete path /home because it is a system directory.",
                     "Unable to trash path " + paths.home() + " because it is a system directory.",
                     "Unable to trash folder contents of path /media because it is a system "
                     "directory.",
                     "Unable to move contents of path /mnt because it is a system directory.",
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

TEST(QVAuthorizationTest, TheRunnerRefusesSystemDirectoriesWhateverItIsAsked) {
    EXPECT_FALSE(QVAuthorization::refusalForTask("/bin/rm", {"-Rdf", "/usr"}).isEmpty());
    EXPECT_FALSE(QVAuthorization::refusalForTask("/bin/rm", {"-rf", "/usr/../"}).isEmpty());
    EXPECT_FALSE(QVAuthorization::refusalForTask("/bin/chown", {"-R", "nobody", "/"}).isEmpty());
    EXPECT_FALSE(QVAuthorization::refusalForTask("/bin/mv", {"-f", "/etc", "/tmp/x"}).isEmpty());
    EXPECT_FALSE(QVAuthorization::refusalForTask("rm", {"/tmp/x"}).isEmpty()) << "PATH lookups";
    EXPECT_TRUE(QVAuthorization::refusalForTask("/bin/mv", {"-f", "/tmp/x", "/etc"}).isEmpty())
        << "a move into a system folder harms nothing";
    EXPECT_TRUE(QVAuthorization::refusalForTask("/bin/rm", {"-Rdf", "/tmp/x"}).isEmpty());

    // The runner program: rmdir on /usr would fail anyway (not empty), so a broken check harms
    // nothing here; the refusal shows as 126 before the tool is run.
    const auto run = [](const QStringList& arguments, QByteArray* said = nullptr) {
        QProcess runner;
        runner.setProcessChannelMode(QProcess::MergedChannels);
        runner.start(CARDSWEEP_AUTH_TOOL, arguments);
        runner.waitForFinished(10000);
        if (said != nullptr)
            *said = runner.readAll();
        return runner.exitCode();
    };
    QByteArray said;
    EXPECT_EQ(run({"/bin/rmdir", "/usr"}, &said), 126);
    EXPECT_TRUE(said.contains("refused")) << said.toStdString();
    EXPECT_TRUE(QFileInfo(QStringLiteral("/usr")).isDir());
    EXPECT_EQ(run({"/bin/true"}), 0);
    EXPECT_EQ(run({"/bin/false"}), 1);
}

TEST(QVAuthorizationTest, OneApprovalCarriesEveryRequestWordForWord) {
    FakeProcessRunner processes;
    processes.setRunsAsRoot(false);  // so the runner, not the fake, does the work
    FakeLocalPaths paths;
    QTemporaryDir work;
    const QString odd = work.filePath("a b\n\"$(reboot)\" -rf");
    {
        QVAuthorization authorization(processes, paths, true, directRunner());
        EXPECT_FALSE(authorization.isAuthorized());
        EXPECT_EQ(authorization.authExecTask("/bin/touch", {odd, ""}, false), 1)
            << "touch ran, and the empty name failed as it should";
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
    const SystemLog::Capture console;
    QVAuthorization headless(processes, paths, false, directRunner());
    EXPECT_FALSE(headless.canAuthorize());
    EXPECT_EQ(headless.authExecTask("/bin/rm", {"-f", work.filePath("moved")}), -1);
    EXPECT_TRUE(console.contains("Unable to authorize"));
    EXPECT_TRUE(QFileInfo::exists(work.filePath("moved")));
    EXPECT_FALSE(headless.authStartWithUser("someone-else", "secret"));
    EXPECT_FALSE(headless.authStartWithUser(paths.username(), ""));
}
