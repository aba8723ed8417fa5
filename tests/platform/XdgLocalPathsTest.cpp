// Folder rules over an environment snapshot: taken once, never the live environment, and the
// same answers as the process-wide statics for the same variables.

#include <gtest/gtest.h>

#include "FakeProcessRunner.h"
#include "QVLocalPaths.h"
#include "TempHome.h"
#include "XdgLocalPaths.h"

// The rules themselves are QVLocalPathsTest's; here, only where their variables come from.
TEST(XdgLocalPathsTest, FoldersComeFromTheSnapshotNotTheLiveEnvironment) {
    QProcessEnvironment environment;
    environment.insert(QStringLiteral("HOME"), QStringLiteral("/home/ann"));
    environment.insert(QStringLiteral("TMPDIR"), QStringLiteral("/scratch//tmp"));
    environment.insert(QStringLiteral("CARDSWEEP_MEDIA_ROOTS"), QStringLiteral("/srv/cards"));
    FakeProcessRunner processes;
    const XdgLocalPaths paths(environment, processes);

    TempHome moved;  // the live environment changes afterwards; the snapshot doesn't
    moved.setEnv("CARDSWEEP_MEDIA_ROOTS", "/elsewhere");
    if (!QVLocalPaths::isElevated()) {
        EXPECT_EQ(paths.documentDirectory(), QStringLiteral("/home/ann/Documents"));
    }
    EXPECT_EQ(paths.tempDirectory(), QStringLiteral("/scratch/tmp"));
    EXPECT_EQ(paths.mediaDriveForPath(QStringLiteral("/srv/cards/A001/CLIP/x.mov")),
              QStringLiteral("/srv/cards/A001"));
    EXPECT_TRUE(paths.isPathSystemDirectory(QStringLiteral("/srv/cards"), true));
    // The statics read the live environment, as before.
    EXPECT_EQ(QVLocalPaths::mediaDriveForPath(QStringLiteral("/elsewhere/B002/x")),
              QStringLiteral("/elsewhere/B002"));
}

TEST(XdgLocalPathsTest, TheFrontAnswersFromThemAndLogindIsAskedThroughTheRunner) {
    FakeProcessRunner processes;
    processes.answer(QStringLiteral("loginctl"), [](const QStringList& arguments) {
        return FakeProcessRunner::exited(
            0, arguments.first() == QLatin1String("list-sessions")
                   ? QByteArray("c2 1000 ann seat0 tty2\n")
                   : QByteArray("Name=ann\nType=wayland\nActive=yes\nClass=user\n"));
    });
    QProcessEnvironment environment;
    environment.insert(QStringLiteral("HOME"), QStringLiteral("/home/ann"));
    environment.insert(QStringLiteral("CARDSWEEP_MEDIA_ROOTS"), QStringLiteral("/srv/cards"));
    const XdgLocalPaths paths(environment, processes);

    const LocalPaths* const before = QVLocalPaths::install(&paths);
    EXPECT_EQ(QVLocalPaths::currentConsoleUser(), QStringLiteral("ann"));
    EXPECT_EQ(QVLocalPaths::currentConsoleUser(), QStringLiteral("ann"));
    EXPECT_EQ(QVLocalPaths::mediaDriveForPath(QStringLiteral("/srv/cards/A001/x")),
              QStringLiteral("/srv/cards/A001"));
    EXPECT_EQ(QVLocalPaths::tempDirectory(), paths.tempDirectory());
    QVLocalPaths::install(before);
    EXPECT_EQ(processes.commandLines(),
              QStringList({QStringLiteral("/usr/bin/loginctl list-sessions --no-legend"),
                           QStringLiteral("/usr/bin/loginctl show-session c2 -p Name -p Type "
                                          "-p Active -p Class")}))
        << "asked once, then kept";
}
