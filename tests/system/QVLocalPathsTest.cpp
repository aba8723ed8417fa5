#include <gtest/gtest.h>
#include <unistd.h>

#include <QFile>
#include <QRegularExpression>
#include <QSet>

#include "QVLocalPaths.h"
#include "TempHome.h"

TEST(QVLocalPathsTest, ProtectedDirectories) {
    const TempHome home;
    EXPECT_TRUE(QVLocalPaths::isPathSystemDirectory(QStringLiteral("/")));
    EXPECT_FALSE(QVLocalPaths::isPathSystemDirectory(QStringLiteral("/a")));
    EXPECT_FALSE(QVLocalPaths::isPathSystemDirectory(QString()));
    EXPECT_TRUE(QVLocalPaths::isPathSystemDirectory(QStringLiteral("/usr/local/bin")));
    EXPECT_FALSE(QVLocalPaths::isPathSystemDirectory(QStringLiteral("/usr/local/bin"), true));
    EXPECT_TRUE(QVLocalPaths::isPathSystemDirectory(QStringLiteral("/usrdata")));
    EXPECT_TRUE(QVLocalPaths::isPathSystemDirectory(QStringLiteral("/various")));
    EXPECT_TRUE(QVLocalPaths::isPathSystemDirectory(QStringLiteral("/Users/Shared")));
    EXPECT_FALSE(QVLocalPaths::isPathSystemDirectory(QStringLiteral("/Users/Shared/Footage")));
    EXPECT_TRUE(QVLocalPaths::isPathSystemDirectory(QStringLiteral("/Volumes"), true));

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
