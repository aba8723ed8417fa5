#include "FakeLocalPaths.h"

#include <QDir>

namespace {

QStringList asRoots(const QStringList& folders) {
    QStringList roots;
    for (const QString& folder : folders) {
        roots << QDir::cleanPath(folder) + u'/';
    }
    return roots;
}

}  // namespace

FakeLocalPaths::FakeLocalPaths(const QStringList& mediaRoots, const QString& username)
    : mediaRoots_(asRoots(mediaRoots)),
      rules_(environmentFor(home_.path(), mediaRoots_),
             LocalPathRules::Identity{false, username, home_.path()}, nullptr) {
    QDir(home_.path()).mkpath(QStringLiteral("tmp"));
}

QProcessEnvironment FakeLocalPaths::environmentFor(const QString& home, const QStringList& roots) {
    QProcessEnvironment environment;
    environment.insert(QStringLiteral("HOME"), home);
    environment.insert(QStringLiteral("TMPDIR"), home + QStringLiteral("/tmp"));
    environment.insert(QStringLiteral("CARDSWEEP_MEDIA_ROOTS"), roots.join(u':'));
    return environment;
}

QString FakeLocalPaths::pathForDirectory(StandardDirectory kind, bool userDomain) const {
    return rules_.pathForDirectory(kind, userDomain);
}

QString FakeLocalPaths::tempDirectory() const {
    return rules_.tempDirectory();
}

QString FakeLocalPaths::username() const {
    return rules_.username();
}

QStringList FakeLocalPaths::mediaRoots() const {
    return mediaRoots_;
}

bool FakeLocalPaths::isConfiguredMediaRoot(const QString& root) const {
    return mediaRoots_.contains(root);
}

bool FakeLocalPaths::isPathSystemDirectory(const QString& path, bool exactMatch) const {
    return rules_.isPathSystemDirectory(path, exactMatch);
}

QString FakeLocalPaths::userDirectory() const {
    return rules_.userDirectory();
}

QString FakeLocalPaths::currentConsoleUser() const {
    return rules_.currentConsoleUser();
}

bool FakeLocalPaths::isElevated() const {
    return rules_.isElevated();
}
