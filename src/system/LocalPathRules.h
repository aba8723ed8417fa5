#pragma once
// The folder rules behind QVLocalPaths (XDG folders, the console user, media roots and the
// system-directory test) worked out over one environment snapshot instead of the live process.
// Immutable after construction; safe from any thread.

#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <functional>

#include "StandardDirectory.h"

class LocalPathRules {
  public:
    /// Who the process runs as.
    struct Identity {
        bool superuser = false;
        QString owner;      // login name of the effective user
        QString ownerHome;  // that user's home in the user database
    };
    /// The login name of the active graphical session's owner; empty when there is none.
    using SessionOwner = std::function<QString()>;

    LocalPathRules(QProcessEnvironment environment, Identity identity, SessionOwner sessionOwner);
    /// The running process as it is now: the variables the rules read and the effective user;
    /// no session owner is asked for.
    static LocalPathRules fromProcess();
    static Identity processIdentity();
    /// The user named in a `loginctl show-session` answer when the session is an active
    /// graphical one of a real user; empty for the login screen, consoles and idle sessions.
    static QString sessionOwnerOf(const QString& properties);

    QString pathForDirectory(StandardDirectory kind, bool userDomain) const;
    QString userDirectory() const;
    QString username() const;
    QString currentConsoleUser() const;
    bool isSuperuser() const { return identity_.superuser; }
    bool isElevated() const;
    QString tempDirectory() const;

    QStringList mediaRoots() const;
    QString mediaDriveForPath(const QString& path) const;
    bool isConfiguredMediaRoot(const QString& root) const;
    bool isPathSystemDirectory(const QString& path, bool exactMatch) const;

    /// The longest of roots that path begins with, plus the next component; empty if none.
    static QString driveForPath(const QString& path, const QStringList& roots);

  private:
    QString variable(const char* name) const;
    QString processHome() const;
    QString xdgBase(const char* name, const char* fallback) const;
    QString xdgUserDir(const char* key, const char* fallback) const;
    QString searchUserDomain(StandardDirectory kind) const;
    QStringList configuredMediaRoots() const;

    QProcessEnvironment environment_;
    Identity identity_;
    SessionOwner sessionOwner_;
};
