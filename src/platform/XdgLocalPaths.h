#pragma once
// The standard folders by the XDG rules over an environment snapshot taken at construction,
// so later changes to the process environment never move them. Safe from any thread.

#include <QProcessEnvironment>

#include "LocalPathRules.h"
#include "LocalPaths.h"

class XdgLocalPaths : public LocalPaths {
  public:
    /// Rules over environment, for the effective user, with logind telling the console user.
    explicit XdgLocalPaths(const QProcessEnvironment& environment);
    /// The running process's own environment.
    static XdgLocalPaths fromProcess();

    QString pathForDirectory(QVLocalPaths::Directory kind, bool userDomain) const override;
    QString tempDirectory() const override;
    QString username() const override;
    QStringList mediaRoots() const override;
    bool isConfiguredMediaRoot(const QString& root) const override;
    bool isPathSystemDirectory(const QString& path, bool exactMatch = false) const override;

  private:
    LocalPathRules rules_;
};
