// Background jobs as systemd user units, against a systemctl on PATH that records its
// arguments: written, loaded, replaced, removed, and the sheet when nothing can be written.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include "FakeLocalPaths.h"
#include "PosixProcessRunner.h"
#include "QVLaunchd.h"
#include "TestFiles.h"

namespace {

// Puts a recording systemctl first on PATH while it lives.
class FakeSystemctl {
  public:
    FakeSystemctl() : path_(qgetenv("PATH")) {
        const QString program = bin_.filePath("systemctl");
        TestFiles::write(program, "#!/bin/sh\nprintf '%s\\n' \"$*\" >> '" +
                                      bin_.filePath("calls").toUtf8() + "'\n");
        QFile::setPermissions(program, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        qputenv("PATH", bin_.path().toUtf8() + ':' + path_);
    }
    ~FakeSystemctl() { qputenv("PATH", path_); }
    /// Each call's arguments, one line each; emptied.
    QStringList take() {
        if (!QFileInfo::exists(bin_.filePath("calls")))
            return {};
        const QStringList calls = QString::fromUtf8(TestFiles::read(bin_.filePath("calls")))
                                      .split('\n', Qt::SkipEmptyParts);
        QFile::remove(bin_.filePath("calls"));
        return calls;
    }

  private:
    QTemporaryDir bin_;
    QByteArray path_;
};

PropertyList job(const QString& label, const QString& program, bool setup) {
    PropertyList::Dictionary entries;
    entries["Label"] = PropertyList(label);
    entries["Program"] = PropertyList(program);
    entries["WorkingDirectory"] = PropertyList(QFileInfo(program).path());
    if (setup) {
        entries["ProgramArguments"] = PropertyList(PropertyList::Array{
            PropertyList(QString("CardsweepHelper")), PropertyList(QString("-setup"))});
        entries["RunAtLoad"] = PropertyList(true);
    } else {
        entries["StartOnMount"] = PropertyList(true);
    }
    return PropertyList(entries);
}

// Jobs in a fresh home, their alerts collected.
class QVLaunchdTest : public testing::Test {
  protected:
    FakeSystemctl systemctl;
    FakeLocalPaths paths;
    PosixProcessRunner processes;
    QStringList alerts;
    QVLaunchd launchd{processes, paths, nullptr, [this](const QString& title, const QString& text) {
                          alerts << title + " | " + text;
                      }};
};

}  // namespace

TEST_F(QVLaunchdTest, AUserUnitIsWrittenLoadedReplacedAndRemoved) {
    const QString folder =
        paths.pathForDirectory(StandardDirectory::Preferences, true) + "/systemd/user";
    EXPECT_EQ(launchd.jobFolder(true, true), folder);
    const QString file = folder + "/com.quorvant.Cardsweep.service";
    // A program path holding what systemd would expand or split.
    const QString helper = "/opt/Card \"sweep\" 100%/$HOME/CardsweepHelper";

    ASSERT_TRUE(launchd.startLaunchAgent("com.quorvant.Cardsweep",
                                         job("com.quorvant.Cardsweep", helper, false), true));
    const QString unit = QString::fromUtf8(TestFiles::read(file));
    EXPECT_TRUE(
        unit.contains("ExecStart=\"/opt/Card \\\"sweep\\\" 100%%/$$HOME/CardsweepHelper\"\n"))
        << unit.toStdString();
    EXPECT_TRUE(unit.contains("Type=simple\n"));
    EXPECT_TRUE(unit.contains("WantedBy=default.target\n"));
    struct stat status {};
    ASSERT_EQ(::stat(QFile::encodeName(file).constData(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0644u);
    EXPECT_EQ(
        systemctl.take(),
        (QStringList{"--user disable --now com.quorvant.Cardsweep.service", "--user daemon-reload",
                     "--user enable --now com.quorvant.Cardsweep.service"}));

    // Started again: the old job goes first.
    ASSERT_TRUE(launchd.startJob("com.quorvant.Cardsweep",
                                 job("com.quorvant.Cardsweep", "/usr/bin/CardsweepHelper", true),
                                 true, true, false));
    EXPECT_TRUE(TestFiles::read(file).contains("Type=oneshot\n"));
    EXPECT_TRUE(
        TestFiles::read(file).contains("ExecStart=\"/usr/bin/CardsweepHelper\" \"-setup\"\n"));
    EXPECT_EQ(
        systemctl.take(),
        (QStringList{"--user disable --now com.quorvant.Cardsweep.service",
                     "--user reset-failed com.quorvant.Cardsweep.service", "--user daemon-reload",
                     "--user disable --now com.quorvant.Cardsweep.service", "--user daemon-reload",
                     "--user enable --now com.quorvant.Cardsweep.service"}));

    // Removed from the user's own folder, whatever `user` says.
    launchd.removeLaunchAgent("com.quorvant.Cardsweep", false);
    EXPECT_FALSE(QFileInfo::exists(file));
    EXPECT_EQ(systemctl.take(), (QStringList{"--user disable --now com.quorvant.Cardsweep.service",
                                             "--user reset-failed com.quorvant.Cardsweep.service",
                                             "--user daemon-reload"}));
    EXPECT_TRUE(alerts.isEmpty()) << alerts.join('\n').toStdString();
}

TEST_F(QVLaunchdTest, AUnitThatCannotBeWrittenAnywhereIsReportedAndNothingIsLoaded) {
    const QString config = paths.pathForDirectory(StandardDirectory::Preferences, true);
    TestFiles::write(config + "/systemd", "a file where the folder should be");  // root too
    EXPECT_FALSE(launchd.startLaunchAgent(
        "com.quorvant.Cardsweep", job("com.quorvant.Cardsweep", "/usr/bin/CardsweepHelper", false),
        true));
    EXPECT_EQ(alerts,
              QStringList{"Error: Unable to create LaunchAgent | Please check you have correct "
                          "permissions for the directory " +
                          config + "/systemd/user."});
    const QStringList calls = systemctl.take();
    EXPECT_TRUE(calls.isEmpty()) << calls.join('\n').toStdString();
}
