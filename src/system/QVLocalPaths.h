#pragma once
// Where things are: the user's and the machine's standard folders (XDG on Linux), fresh
// temporary names, the console user, and the test for directories that must never be
// deleted, emptied or overwritten. Class-level operations only: a front over the LocalPaths
// that AppContext installs. Before one is installed (helper tools, tests), the same rules
// answer over the process's environment as it is at each call.
//
// As the superuser, "user" folders are those of the person at the console.

#include <QString>
#include <QStringList>

#include "StandardDirectory.h"

class LocalPaths;

class QVLocalPaths {
  public:
    using Directory = StandardDirectory;

    /// The paths every operation answers from. Called by AppContext only, once, on the main
    /// thread before other threads start; paths outlives every caller. Read from any thread.
    /// Returns the paths installed before (null at first: the rules over the process).
    static const LocalPaths* install(const LocalPaths* paths);

    /// The folder of that kind in the user (true) or local (false) domain; empty if none.
    static QString pathForDirectory(Directory kind, bool userDomain);

    static QString applicationDirectory(bool user);
    static QString adminApplicationDirectory(bool user);
    static QString documentDirectory(bool user);
    static QString libraryDirectory(bool user);
    static QString prefsDirectory(bool user);
    static QString cacheDirectory(bool user);
    static QString appSupportDirectory(bool user);
    static QString logDirectory(bool user);
    static QString movieDirectory();
    static QString desktopDirectory();
    static QString systemLibraryDirectory();
    static QString localDocumentationDirectory();
    static QString trashDirectory();
    static QString userDirectory();
    static QString username();
    static QString darwinCacheDirectory();
    static QString tempDirectory();

    /// tempDirectory + uuid + 8 random characters; the file is not created.
    static QString tempFile();
    static QString uuid();
    static QString randomString(int length);

    /// True for "/", the standard folders, the media roots and, unless exactMatch, the
    /// system folders and whatever lies below them.
    static bool isPathSystemDirectory(const QString& path, bool exactMatch = false);
    static bool isPathOnTimeMachineVolume(const QString& path);

    /// Login name of the user of the active graphical session, else $SUDO_USER; empty
    /// when nobody is logged in.
    static QString currentConsoleUser();
    /// The user named in a `loginctl show-session -p Name -p Type -p Active -p Class` answer
    /// when the session is an active graphical one of a real user; empty for the login
    /// screen, text consoles and inactive sessions.
    static QString sessionOwner(const QString& properties);

    /// The media roots under which removable volumes are mounted, each ending in "/".
    static QStringList mediaRoots();
    /// The drive a path lies on: the longest media root it begins with plus the next path
    /// component ("/media/ann/CARD" for "/media/ann/CARD/CLIP"); empty for other paths.
    static QString mediaDriveForPath(const QString& path);
    /// True for roots named in CARDSWEEP_MEDIA_ROOTS, where plain folders stand in for drives.
    static bool isConfiguredMediaRoot(const QString& root);

    static bool isSuperuser();
    /// Running as the superuser on behalf of someone else at the console (sudo, pkexec):
    /// then "user" folders are that person's.
    static bool isElevated();
};
