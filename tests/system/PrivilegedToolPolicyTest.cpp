// The privileged runner run as root, as pkexec would run it: every request Cardsweep sends, in
// each shape, passes on the caller's own folders; anything else ends with 126 and a line
// naming the tool. Requests that would do harm if let through are chosen to fail harmlessly.
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include "TestFiles.h"

namespace {

struct Request {
    const char* what;
    QStringList words;  // "@" stands for the test's folder
    int status;
    const char* callerUid = nullptr;  // PKEXEC_UID, as pkexec sets it
};

void PrintTo(const Request& request, std::ostream* out) {
    *out << request.what;
}

class PrivilegedToolPolicyTest : public testing::TestWithParam<Request> {
  protected:
    void SetUp() override {
        if (::getuid() != 0)
            GTEST_SKIP() << "the runner's rules are tried as root, as pkexec runs it";
        // The folder holds a file, a folder, links into /etc and a stranger's file beside it.
        TestFiles::write(at("@/f"));
        TestFiles::write(at("@/d/clip"));
        ASSERT_TRUE(QFile::link("/etc", at("@/etc-link")));
        ASSERT_TRUE(QFile::link("/etc/hosts", at("@/hosts-link")));
        stranger_ = TestFiles::write(QDir::tempPath() + "/cardsweep-stranger-" +
                                     QString::number(::getpid()));
        const struct passwd* nobody = ::getpwnam("nobody");
        ASSERT_NE(nobody, nullptr);
        ASSERT_EQ(::chown(QFile::encodeName(stranger_).constData(), nobody->pw_uid, 0), 0);
    }
    void TearDown() override { QFile::remove(stranger_); }

    QString at(QString word) const {
        return word.replace("@", work_.path())
            .replace("%uid", QString::number(::getuid()) + ':' + QString::number(::getgid()))
            .replace("%stranger", stranger_);
    }

    QTemporaryDir work_;
    QString stranger_;
};

TEST_P(PrivilegedToolPolicyTest, RunsOnlyCardsweepsOwnRequests) {
    const Request& request = GetParam();
    QStringList words;
    for (const QString& word : request.words)
        words << at(word);
    QProcess runner;
    if (request.callerUid != nullptr) {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("PKEXEC_UID", request.callerUid);
        runner.setProcessEnvironment(environment);
    }
    runner.start(CARDSWEEP_AUTH_TOOL, words);
    ASSERT_TRUE(runner.waitForFinished(10000));
    const QString said = QString::fromLocal8Bit(runner.readAllStandardError());
    EXPECT_EQ(runner.exitCode(), request.status) << said.toStdString();
    if (request.status == 126) {
        EXPECT_TRUE(said.startsWith("CardsweepAuthTool: refused " + words.front() + ": "))
            << said.toStdString();
    }
    EXPECT_TRUE(QFileInfo::exists(stranger_));
}

INSTANTIATE_TEST_SUITE_P(
    Requests, PrivilegedToolPolicyTest,
    testing::Values(
        // What the application sends, on its own folders.
        Request{"remove", {"/bin/rm", "-Rdf", "@/d"}, 0},
        Request{"remove entry", {"/bin/rm", "-R", "-f", "@/d/clip"}, 0},
        Request{"move", {"/bin/mv", "-f", "@/f", "@/d/moved"}, 0},
        Request{"copy", {"/bin/cp", "-f", "-p", "-R", "@/d", "@/new copy"}, 0},
        Request{"make folder", {"/bin/mkdir", "-p", "@/a/b/c"}, 0},
        Request{"touch", {"/usr/bin/touch", "-c", "@/f"}, 0},
        Request{"mode", {"/bin/chmod", "644", "@/f"}, 0},
        Request{"owner", {"/bin/chown", "%uid", "@/f"}, 0},
        // Anything else.
        Request{"shell", {"/bin/sh", "-c", "true"}, 126},
        Request{"unknown tool", {"/bin/rmdir", "@/d"}, 126},
        Request{"tool by name", {"rm", "-Rdf", "@/d"}, 126},
        Request{"extra flag", {"/bin/rm", "-Rdf", "--no-preserve-root", "@/d"}, 126},
        Request{"set-user symbolic", {"/bin/chmod", "u+s", "@/f"}, 126},
        Request{"set-user numeric", {"/bin/chmod", "4755", "@/f"}, 126},
        Request{"set-group numeric", {"/bin/chmod", "02755", "@/f"}, 126},
        Request{"owner another user", {"/bin/chown", "nobody", "@/f"}, 126},
        Request{"owner root for a user", {"/bin/chown", "0:0", "@/f"}, 126, "65534"},
        Request{"folder through a link", {"/usr/bin/touch", "-c", "@/etc-link/passwd"}, 126},
        Request{"file through a link", {"/usr/bin/touch", "-c", "@/hosts-link"}, 126},
        Request{"climbing out", {"/usr/bin/touch", "-c", "@/d/../../../etc/passwd"}, 126},
        Request{"copy deep into etc",
                {"/bin/cp", "-f", "-p", "-R", "@/f", "/etc/systemd/system/cardsweep-none/x"},
                126},
        Request{"copy out of etc", {"/bin/cp", "-f", "-p", "-R", "/etc/shadow", "@/s"}, 126},
        Request{"outside its places", {"/bin/mkdir", "-p", "/cardsweep-none/x"}, 126},
        Request{"a stranger's file in tmp", {"/bin/rm", "-Rdf", "%stranger"}, 126},
        Request{"another user's folder", {"/bin/mkdir", "-p", "@/x"}, 126, "65534"},
        Request{"format a file", {"/usr/sbin/mkfs.fat", "-F", "32", "@/f"}, 126}));

}  // namespace
