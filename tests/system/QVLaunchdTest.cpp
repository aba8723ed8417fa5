// Background jobs as systemd user units, with the tools recorded: written, loaded, replaced and
// removed. The sheet when nothing can be written is the controller's test.
#include <gtest/gtest.h>

#include <QFileInfo>

#include "FakeLocalPaths.h"
#include "FakeProcessRunner.h"
#include "QVLaunchd.h"
#include "TestFiles.h"

namespace {

const QString kUnit = "com.quorvant.Cardsweep.service";

// The listener (started on mount) or the setup job (run once at load).
PropertyList job(const QString& program, bool setup) {
    PropertyList::Dictionary entries{{"Label", "com.quorvant.Cardsweep"},
                                     {"Program", program},
                                     {"WorkingDirectory", QFileInfo(program).path()}};
    if (setup) {
        entries["ProgramArguments"] = PropertyList::Array{"CardsweepHelper", "-setup"};
        entries["RunAtLoad"] = true;
    } else {
        entries["StartOnMount"] = true;
    }
    return entries;
}

// Jobs in a fresh home, their alerts collected.
class QVLaunchdTest : public testing::Test {
  protected:
    QVLaunchdTest() {
        processes.answer("systemctl", FakeProcessRunner::exited(0));
        processes.answer("chmod", FakeProcessRunner::exited(0));
    }
    // The commands run since the last look, with the unit's name as UNIT.
    QStringList ran() {
        const QStringList all = processes.commandLines();
        QStringList fresh = all.mid(seen_);
        seen_ = all.size();
        return fresh.replaceInStrings(kUnit, "UNIT");
    }
    QString config() const { return paths.pathForDirectory(StandardDirectory::Preferences, true); }

    FakeLocalPaths paths;
    FakeProcessRunner processes;
    QStringList alerts;
    QVLaunchd launchd{processes, paths, nullptr, [this](const QString& title, const QString& text) {
                          alerts << title + " | " + text;
                      }};

  private:
    qsizetype seen_ = 0;
};

}  // namespace

TEST_F(QVLaunchdTest, AUserUnitIsWrittenLoadedReplacedAndRemoved) {
    const QString folder = config() + "/systemd/user";
    EXPECT_EQ(launchd.jobFolder(true, true), folder);
    const QString file = folder + "/" + kUnit;
    const QStringList load = {
        "chmod 644 " + folder + "/UNIT", "systemctl --user disable --now UNIT",
        "systemctl --user daemon-reload", "systemctl --user enable --now UNIT"};
    const QStringList unload = {"systemctl --user disable --now UNIT",
                                "systemctl --user reset-failed UNIT",
                                "systemctl --user daemon-reload"};
    // A program path holding what systemd would expand or split.
    ASSERT_TRUE(launchd.startLaunchAgent(
        "com.quorvant.Cardsweep", job("/opt/Card \"sweep\" 100%/$HOME/CardsweepHelper", false),
        true));
    const QString unit = QString::fromUtf8(TestFiles::read(file));
    EXPECT_TRUE(
        unit.contains("ExecStart=\"/opt/Card \\\"sweep\\\" 100%%/$$HOME/CardsweepHelper\"\n"))
        << unit.toStdString();
    EXPECT_TRUE(unit.contains("Type=simple\n") && unit.contains("WantedBy=default.target\n"));
    EXPECT_EQ(ran(), load);

    // Started again: the old job goes first.
    ASSERT_TRUE(launchd.startJob("com.quorvant.Cardsweep", job("/usr/bin/CardsweepHelper", true),
                                 true, true, false));
    const QByteArray setup = TestFiles::read(file);
    EXPECT_TRUE(setup.contains("Type=oneshot\n") &&
                setup.contains("ExecStart=\"/usr/bin/CardsweepHelper\" \"-setup\"\n"));
    EXPECT_EQ(ran(), unload + load);

    // Removed from the user's own folder, whatever `user` says.
    launchd.removeLaunchAgent("com.quorvant.Cardsweep", false);
    EXPECT_FALSE(QFileInfo::exists(file));
    EXPECT_EQ(ran(), unload);
    EXPECT_TRUE(alerts.isEmpty()) << alerts.join('\n').toStdString();
}
