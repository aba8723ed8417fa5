// Protected folders, the console user, the XDG folders and the kernel release.

#include <gtest/gtest.h>
#include <unistd.h>

#include <QFile>
#include <QRegularExpression>
#include <vector>

#include "QVLocalPaths.h"
#include "QVOSDetect.h"
#include "TempHome.h"

TEST(QVLocalPathsTest, ProtectedDirectories) {
    TempHome home;
    home.setEnv("CARDSWEEP_MEDIA_ROOTS", home.file(QStringLiteral("cards")).toLocal8Bit());
    const auto expectAll = [](const QStringList& paths, bool exactMatch, bool expected) {
        for (const QString& path : paths) {
            EXPECT_EQ(QVLocalPaths::isPathSystemDirectory(path, exactMatch), expected)
                << path.toStdString() << (exactMatch ? " (exact)" : "");
        }
    };
    // System folders protect what lies below them, unless only exact matches count.
    expectAll({"/", "/usr/local/bin", "/usrdata", "/various", "/Users/Shared", "/dev/sda"}, false,
              true);
    expectAll({"/a", QString(), "/Users/Shared/Footage", "/library"}, false, false);
    expectAll({"/usr/local/bin"}, true, false);
    // The media roots (they hold the mounted cards), the home, its standard folders and the
    // XDG ones are protected exactly.
    const QString user = QVLocalPaths::username();
    expectAll({"/Volumes", "/media", home.file("cards"), "/media/" + user, "/run/media/" + user,
               home.path(), QVLocalPaths::desktopDirectory(), QVLocalPaths::documentDirectory(true),
               home.file(".config"), home.file(".local/share"), home.file(".cache")},
              true, true);
    // A card is not, nor the Desktop with a trailing slash, which cuts a letter too.
    expectAll(
        {home.file("cards/A001"), home.file("Footage"), QVLocalPaths::desktopDirectory() + u'/'},
        true, false);
}

TEST(QVLocalPathsTest, OnlyAnActiveGraphicalUserSessionHasAConsoleUser) {
    const QString ann = QStringLiteral("Name=ann\nType=wayland\nActive=yes\nClass=user\n");
    EXPECT_EQ(QVLocalPaths::sessionOwner(ann), QStringLiteral("ann"));
    for (const QString& other :
         {QStringLiteral("Name=Debian-gdm\nType=wayland\nActive=yes\nClass=greeter\n"),
          QStringLiteral("Name=ann\nType=tty\nActive=yes\nClass=user\n"),
          QStringLiteral("Name=ann\nType=x11\nActive=no\nClass=user\n"), QString()}) {
        EXPECT_TRUE(QVLocalPaths::sessionOwner(other).isEmpty()) << other.toStdString();
    }
}

TEST(QVLocalPathsTest, FoldersFollowTheXdgVariables) {
    TempHome home;
    home.setEnv("XDG_DATA_HOME", home.file(QStringLiteral("data")).toLocal8Bit());
    home.setEnv("XDG_STATE_HOME", home.file(QStringLiteral("state")).toLocal8Bit());
    EXPECT_EQ(QVLocalPaths::libraryDirectory(true), home.file(QStringLiteral("data")));
    EXPECT_EQ(QVLocalPaths::logDirectory(true), home.file(QStringLiteral("state/Logs")));
    EXPECT_EQ(QVLocalPaths::trashDirectory(), home.file(QStringLiteral("data/Trash")));
    EXPECT_EQ(QVLocalPaths::logDirectory(false), QStringLiteral("/var/log"));

    QFile dirs(home.file(QStringLiteral(".config/user-dirs.dirs")));
    ASSERT_TRUE(dirs.open(QIODevice::WriteOnly));
    dirs.write("XDG_DOCUMENTS_DIR=\"$HOME/Dokumente\"\nXDG_DESKTOP_DIR=\"$HOME/\"\n");
    dirs.close();
    EXPECT_EQ(QVLocalPaths::documentDirectory(true), home.file(QStringLiteral("Dokumente")));
    // A user dir set to the home itself means "unset".
    EXPECT_EQ(QVLocalPaths::desktopDirectory(), home.file(QStringLiteral("Desktop")));
}

TEST(QVLocalPathsTest, SuperuserFoldersBelongToTheConsoleUser) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs to run as root to take the superuser's view";
    }
    TempHome home;
    if (!QVLocalPaths::currentConsoleUser().isEmpty()) {
        GTEST_SKIP() << "a graphical session owns this console; can't stand in a test user";
    }
    EXPECT_EQ(QVLocalPaths::libraryDirectory(true), home.file(QStringLiteral(".local/share")));
    home.setEnv("SUDO_USER", "nobody");
    EXPECT_EQ(QVLocalPaths::currentConsoleUser(), QStringLiteral("nobody"));
    EXPECT_EQ(QVLocalPaths::username(), QStringLiteral("nobody"));
    EXPECT_EQ(QVLocalPaths::userDirectory(), QStringLiteral("/nonexistent"));
    EXPECT_EQ(QVLocalPaths::libraryDirectory(true), QStringLiteral("/nonexistent/.local/share"));
    EXPECT_EQ(QVLocalPaths::libraryDirectory(false), QStringLiteral("/usr/local/share"));
}

// The kernel release, which the log's header and the analytics give as the system's version.
TEST(QVLocalPathsTest, KernelReleaseReadsAsThreeNumbers) {
    int v[3] = {-1, -1, -1};
    EXPECT_TRUE(QVOSDetect::parseRelease(QStringLiteral("6.1.0-18-amd64"), &v[0], &v[1], &v[2]));
    EXPECT_EQ(std::vector<int>(v, v + 3), (std::vector<int>{6, 1, 0}));
    EXPECT_TRUE(QVOSDetect::parseRelease(QStringLiteral("5"), &v[0], nullptr, &v[2]));
    EXPECT_EQ(std::vector<int>(v, v + 3), (std::vector<int>{5, 1, 0}));
    EXPECT_FALSE(QVOSDetect::parseRelease(QStringLiteral("x"), &v[0], &v[1], &v[2]));
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^\\d+\\.\\d+\\.\\d+$"))
                    .match(QVOSDetect::osxVersion())
                    .hasMatch());
}
