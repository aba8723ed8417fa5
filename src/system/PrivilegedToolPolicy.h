#pragma once
// What the privileged runner may run, and so all the application may ask of it: a fixed list of
// tools by absolute path, each with the argument shapes Cardsweep sends, for the user who asked.
// Every path argument is checked after resolving links: system folders are refused at any
// depth, and so is anything outside the places Cardsweep writes (the caller's home, cards and
// destinations under the mount roots, the caller's own entries in the shared temporary
// folders). Modes never carry set-user or set-group bits; ownership goes only to the caller.
// Immutable once made; safe from any thread.

#include <sys/types.h>

#include <QString>
#include <QStringList>

class PrivilegedToolPolicy {
  public:
    /// The user on whose behalf a request runs.
    struct Caller {
        uid_t uid = 0;
        QString home;  // empty when unknown
    };

    /// The person behind this process: PKEXEC_UID or SUDO_UID when running as root through
    /// them, otherwise the process's own user (root as plain root).
    static Caller callerOfThisProcess();

    explicit PrivilegedToolPolicy(Caller caller);

    /// Why the request must not run; empty when it may.
    QString refusal(const QString& tool, const QStringList& arguments) const;

  private:
    QString pathRefusal(const QString& path) const;
    QString placeRefusal(const QString& resolved) const;
    QString sharedFolderRefusal(const QString& resolved) const;
    QString modeRefusal(const QString& mode) const;
    QString ownerRefusal(const QString& owner) const;
    QString deviceRefusal(const QString& device) const;

    const Caller caller_;
};
