#include <gtest/gtest.h>
#include <unistd.h>

#include <QFile>
#include <QRegularExpression>
#include <QSet>
#include <vector>

#include "QVLocalPaths.h"
#include "QVOSDetect.h"
#include "TempHome.h"

TEST(QVLocalPathsTest, ProtectedDirectories) {
    TempHome home;
    EXPECT_TRUE(QVLocalPaths::isPathSystemDirectory(QStringLiteral("/")));
    EXPECT_FALSE(QVLocalPaths::isPathSystemDirectory(QStringLiteral("/a")));
    EXPECT_FALSE(QVLocalPaths::isPathSystemDirectory(QString()));
    EXPECT_TRUE(QVLocalPaths::isPathSystemDirectory(QStringLiteral("/usr/local/bin")));
    EXPECT_FALSE(QVLocalPaths::isPathSystemDirectory(QStringLiteral("/usr/local/bin"), true));
    EXPECT_TRUE(QVLocalPaths::isPathSystemDirectory(QStringLiteral("/usrdata")));
    EXPECT_TRUE(QVLocalPaths::isPathSystemDirectory(QStringLiteral("/various")));
    EXPECT_TRUE(QVLocalPaths::isPathSystemDirectory(QStringLiteral("/Users/Shared")));
    EXPECT_FALSE(QVLocalPaths::isPathSystemDirectory(QStringLiteral("/Users/Shared/Footage")));
    EXPECT_TRUE(QVLocalPaths::isPathSystemDirectory(QStringLiteral("/dev/sda")));
    EXPECT_FALSE(QVLocalPaths::isPathSystemDirectory(QStringLiteral("/library")));

    // Every media root holds the mounted cards, so it is protected exactly; a card is not.
    home.setEnv("CARDSWEEP_MEDIA_ROOTS", home.file(QStringLiteral("cards")).toLocal8Bit());
    for (const QString& root :
         {QStringLiteral("/Volumes"), QStringLiteral("/media"), home.file(QStringLiteral("cards")),
          QStringLiteral("/media/") + QVLocalPaths::username(),
          QStringLiteral("/run/media/") + QVLocalPaths::username()}) {
        EXPECT_TRUE(QVLocalPaths::isPathSystemDirectory(root, true)) << root.toStdString();
    }
    EXPECT_FALSE(
        QVLocalPaths::isPathSystemDirectory(home.file(QStringLiteral("cards/A001")), true));

    // The home, its standard folders and the XDG ones are protected exactly.
    for (const QString& path :
         {home.path(), QVLocalPaths::desktopDirectory(), QVLocalPaths::documentDirectory(true),
          home.file(QStringLiteral(".config")), home.file(QStringLiteral(".local/share")),
          home.file(QStringLiteral(".cache"))}) {
        EXPECT_TRUE(QVLocalPaths::isPathSystemDirectory(path, true)) << path.toStdString();
    }
    EXPECT_FALSE(QVLocalPaths::isPathSystemDirectory(home.file(QStringLiteral("Footage")), true));
    // A trailing slash cuts a letter too, so the Desktop is then not recognised.
    EXPECT_FALSE(
        QVLocalPaths::isPathSystemDirectory(QVLocalPaths::desktopDirectory() + u'/', true));
}

TEST(QVLocalPathsTest, BackupStoresOnlyCountUnderAMediaRoot) {
    EXPECT_TRUE(QVLocalPaths::isPathOnTimeMachineVolume(
        QStringLiteral("/Volumes/Backup/Backups.backupdb/mac/Latest")));
    EXPECT_TRUE(QVLocalPaths::isPathOnTimeMachineVolume(
        QStringLiteral("/media/Backup/Backups.backupdb/host")));
    EXPECT_FALSE(QVLocalPaths::isPathOnTimeMachineVolume(QStringLiteral("/Backups.backupdb")));
    EXPECT_FALSE(
        QVLocalPaths::isPathOnTimeMachineVolume(QStringLiteral("/Volumes/Card/Backups.backupdbx")));
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

TEST(QVLocalPathsTest, TemporaryNamesAreFreshAndWellFormed) {
    QSet<QString> names;
    for (int i = 0; i < 50; ++i) {
        const QString name = QVLocalPaths::tempFile();
        EXPECT_TRUE(name.startsWith(QVLocalPaths::tempDirectory() + u'/'));
        EXPECT_FALSE(QFile::exists(name));
        names.insert(name);
    }
    EXPECT_EQ(names.size(), 50);
    EXPECT_NE(QVLocalPaths::uuid(), QVLocalPaths::uuid());
    EXPECT_EQ(QVLocalPaths::randomString(0), QString());
    static const QRegularExpression alphabet(QStringLiteral("^[a-z0-9]{40}$"));
    EXPECT_TRUE(alphabet.match(QVLocalPaths::randomString(40)).hasMatch());
}

TEST(QVLocalPathsTest, KernelReleaseReadsAsThreeNumbersComparedInOrder) {
    int v[3] = {-1, -1, -1};
    EXPECT_TRUE(QVOSDetect::parseRelease(QStringLiteral("6.1.0-18-amd64"), &v[0], &v[1], &v[2]));
    EXPECT_EQ(std::vector<int>(v, v + 3), (std::vector<int>{6, 1, 0}));
    EXPECT_TRUE(QVOSDetect::parseRelease(QStringLiteral("5"), &v[0], nullptr, &v[2]));
    EXPECT_EQ(std::vector<int>(v, v + 3), (std::vector<int>{5, 1, 0}));
    EXPECT_FALSE(QVOSDetect::parseRelease(QStringLiteral("x"), &v[0], &v[1], &v[2]));

    ASSERT_TRUE(QVOSDetect::getSystemVersion(&v[0], &v[1], &v[2]));
    EXPECT_TRUE(QVOSDetect::isOSVersionHigherThan(v[0], v[1], v[2]));
    EXPECT_FALSE(QVOSDetect::isOSVersionHigherThan(v[0], v[1], v[2] + 1));
    EXPECT_FALSE(QVOSDetect::isOSVersionHigherThan(v[0], v[1] + 1, 0));
    EXPECT_TRUE(QVOSDetect::isOSVersionHigherThan(v[0] - 1, v[1] + 1, v[2] + 1));
    EXPECT_TRUE(QVOSDetect::isOSVersionHigherThan(v[0], v[1] - 1, v[2] + 1));
}
