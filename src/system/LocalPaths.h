#pragma once
// Where things are: the standard folders, the console user, the media roots and the folders
// that must never be deleted or emptied, behind an interface so tests need no real home.
// Implementations are immutable after construction and safe from any thread.

#include <QString>
#include <QStringList>

#include "StandardDirectory.h"

class LocalPaths {
  public:
    virtual ~LocalPaths() = default;

    /// The folder of that kind in the user (true) or local (false) domain; empty if none.
    virtual QString pathForDirectory(StandardDirectory kind, bool userDomain) const = 0;
    virtual QString tempDirectory() const = 0;
    /// Login name of the person the "user" folders belong to.
    virtual QString username() const = 0;
    /// Home folder of that person.
    virtual QString userDirectory() const = 0;
    /// Login name of the user of the active graphical session, else $SUDO_USER; empty when
    /// nobody is logged in.
    virtual QString currentConsoleUser() const = 0;
    /// Running as the superuser on behalf of someone else at the console (sudo, pkexec).
    virtual bool isElevated() const = 0;
    /// The roots under which removable volumes are mounted, each ending in "/".
    virtual QStringList mediaRoots() const = 0;
    /// True for roots where plain folders stand in for drives.
    virtual bool isConfiguredMediaRoot(const QString& root) const = 0;
    /// True for "/", the standard folders, the media roots and, unless exactMatch, the
    /// system folders and whatever lies below them.
    virtual bool isPathSystemDirectory(const QString& path, bool exactMatch = false) const = 0;

    QString documentDirectory() const {
        return pathForDirectory(StandardDirectory::Documents, true);
    }
    QString desktopDirectory() const { return pathForDirectory(StandardDirectory::Desktop, true); }
    QString logDirectory() const { return pathForDirectory(StandardDirectory::Logs, true); }
    /// The drive a path lies on: the longest media root it begins with plus the next
    /// component; empty for other paths.
    QString mediaDriveForPath(const QString& path) const;
    /// One of our helper programs (QTMetaTool, QTTimecodeTool), installed beside the running
    /// executable.
    static QString helperProgram(const QString& name);
};
