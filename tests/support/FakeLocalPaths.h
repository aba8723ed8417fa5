#pragma once
// Local paths inside a fresh temporary home, with the media roots a test gives, worked out by
// the real rules over a made-up environment: nothing reads or sets the process environment.
// Safe from any thread.

#include <QTemporaryDir>

#include "LocalPathRules.h"
#include "LocalPaths.h"

class FakeLocalPaths : public LocalPaths {
  public:
    /// mediaRoots are plain folders standing in for drives' parents ("/" is appended).
    explicit FakeLocalPaths(const QStringList& mediaRoots = {},
                            const QString& username = QStringLiteral("tester"));

    QString home() const { return home_.path(); }

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
    static QProcessEnvironment environmentFor(const QString& home, const QStringList& roots);

    QTemporaryDir home_;
    QStringList mediaRoots_;
    LocalPathRules rules_;
};
