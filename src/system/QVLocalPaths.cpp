#include "QVLocalPaths.h"

#include <unistd.h>

#include <QHash>
#include <QRandomGenerator>
#include <QUuid>
#include <atomic>

#include "LocalPathRules.h"
#include "LocalPaths.h"

namespace {

std::atomic<const LocalPaths*> installedPaths{nullptr};

// Before anything is installed: the rules over the process as it is at each call (tests move
// HOME), asking nobody for the console user.
class LiveRules final : public LocalPaths {
  public:
    QString pathForDirectory(StandardDirectory kind, bool user) const override {
        return LocalPathRules::fromProcess().pathForDirectory(kind, user);
    }
    QString tempDirectory() const override { return LocalPathRules::fromProcess().tempDirectory(); }
    QString username() const override { return LocalPathRules::fromProcess().username(); }
    QString userDirectory() const override { return LocalPathRules::fromProcess().userDirectory(); }
    QString currentConsoleUser() const override {
        return LocalPathRules::fromProcess().currentConsoleUser();
    }
    bool isElevated() const override { return LocalPathRules::fromProcess().isElevated(); }
    QStringList mediaRoots() const override { return LocalPathRules::fromProcess().mediaRoots(); }
    bool isConfiguredMediaRoot(const QString& root) const override {
        return LocalPathRules::fromProcess().isConfiguredMediaRoot(root);
    }
    bool isPathSystemDirectory(const QString& path, bool exactMatch) const override {
        return LocalPathRules::fromProcess().isPathSystemDirectory(path, exactMatch);
    }
};

const LocalPaths& current() {
    static const LiveRules live;
    const LocalPaths* installed = installedPaths.load();
    return installed != nullptr ? *installed : live;
}

}  // namespace

const LocalPaths* QVLocalPaths::install(const LocalPaths* paths) {
    return installedPaths.exchange(paths);
}

QString QVLocalPaths::sessionOwner(const QString& properties) {
    return LocalPathRules::sessionOwnerOf(properties);
}

bool QVLocalPaths::isSuperuser() {
    return geteuid() == 0;
}

bool QVLocalPaths::isElevated() {
    return current().isElevated();
}

QString QVLocalPaths::pathForDirectory(Directory kind, bool userDomain) {
    return current().pathForDirectory(kind, userDomain);
}
QString QVLocalPaths::applicationDirectory(bool user) {
    return pathForDirectory(Directory::Applications, user);
}
QString QVLocalPaths::adminApplicationDirectory(bool user) {
    return pathForDirectory(Directory::AdminApplications, user);
}
QString QVLocalPaths::documentDirectory(bool user) {
    return pathForDirectory(Directory::Documents, user);
}
QString QVLocalPaths::libraryDirectory(bool user) {
    return pathForDirectory(Directory::Library, user);
}
QString QVLocalPaths::prefsDirectory(bool user) {
    return pathForDirectory(Directory::Preferences, user);
}
QString QVLocalPaths::cacheDirectory(bool user) {
    return pathForDirectory(Directory::Caches, user);
}
QString QVLocalPaths::appSupportDirectory(bool user) {
    return pathForDirectory(Directory::ApplicationSupport, user);
}
QString QVLocalPaths::logDirectory(bool user) {
    return pathForDirectory(Directory::Logs, user);
}
QString QVLocalPaths::movieDirectory() {
    return pathForDirectory(Directory::Movies, true);
}
QString QVLocalPaths::desktopDirectory() {
    return pathForDirectory(Directory::Desktop, true);
}
QString QVLocalPaths::systemLibraryDirectory() {
    return pathForDirectory(Directory::SystemLibrary, false);
}
QString QVLocalPaths::localDocumentationDirectory() {
    return pathForDirectory(Directory::Documentation, false);
}
QString QVLocalPaths::trashDirectory() {
    return pathForDirectory(Directory::Library, true) + QStringLiteral("/Trash");
}
QString QVLocalPaths::darwinCacheDirectory() {
    return cacheDirectory(true);
}

QString QVLocalPaths::userDirectory() {
    return current().userDirectory();
}

QString QVLocalPaths::username() {
    return current().username();
}

QString QVLocalPaths::currentConsoleUser() {
    return current().currentConsoleUser();
}

QString QVLocalPaths::tempDirectory() {
    return current().tempDirectory();
}

QString QVLocalPaths::tempFile() {
    return tempDirectory() + u'/' + uuid() + randomString(8);
}

QString QVLocalPaths::uuid() {
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}

QString QVLocalPaths::randomString(int length) {
    static const QString alphabet = QStringLiteral("abcdefghijklmnopqrstuvwxyz0123456789");
    QString result;
    result.reserve(length);
    for (int i = 0; i < length; ++i) {
        result += alphabet[static_cast<int>(QRandomGenerator::global()->bounded(36U))];
    }
    return result;
}

QStringList QVLocalPaths::mediaRoots() {
    return current().mediaRoots();
}

QString QVLocalPaths::mediaDriveForPath(const QString& path) {
    return LocalPathRules::driveForPath(path, mediaRoots());
}

bool QVLocalPaths::isConfiguredMediaRoot(const QString& root) {
    return current().isConfiguredMediaRoot(root);
}

bool QVLocalPaths::isPathSystemDirectory(const QString& path, bool exactMatch) {
    return current().isPathSystemDirectory(path, exactMatch);
}

bool QVLocalPaths::isPathOnTimeMachineVolume(const QString& path) {
    bool underMediaRoot = false;
    for (const QString& root : mediaRoots()) {
        underMediaRoot = underMediaRoot || path.startsWith(root);
    }
    return underMediaRoot && path.split(u'/').contains(QStringLiteral("Backups.backupdb"));
}
