#pragma once
// The standard folders by the XDG rules over an environment snapshot taken at construction,
// so later changes to the process environment never move them; the console user is asked of
// systemd-logind (kept for two seconds, since asking starts processes). Safe from any thread.

#include <QProcessEnvironment>

#include "LocalPathRules.h"
#include "LocalPaths.h"

class ProcessRunner;

class XdgLocalPaths : public LocalPaths {
  public:
    /// Rules over environment, for the effective user, with logind (through processes, which
    /// must outlive this) telling the console user.
    XdgLocalPaths(const QProcessEnvironment& environment, ProcessRunner& processes);
    /// The running process's own environment.
    static XdgLocalPaths fromProcess(ProcessRunner& processes);

    QString pathForDirectory(StandardDirectory kind, bool userDomain) const override;
    QString tempDirectory() const override;
    QString username() const override;
    QString userDirectory() const override;
    QString currentConsoleUser() const override;
    bool isElevated() const override;
    QStringList mediaRoots() const override;
    bool isConfiguredMediaRoot(const QString& root) const override;
    bool isPathSystemDirectory(const QString& path, bool exactMatch = false) const override;

  private:
    LocalPathRules rules_;
};
