#include "QVLocalPaths.h"

#include <unistd.h>

#include <QHash>
#include <QRandomGenerator>
#include <QUuid>

#include "LocalPathRules.h"

// Each call reads the process afresh, as callers have always relied on (tests move HOME).

QString QVLocalPaths::sessionOwner(const QString& properties) {
    return LocalPathRules::sessionOwnerOf(properties);
}

bool QVLocalPaths::isSuperuser() {
    return geteuid() == 0;
}

bool QVLocalPaths::isElevated() {
    return LocalPathRules::fromProcess().isElevated();
}

QString QVLocalPaths::pathForDirectory(Directory kind, bool userDomain) {
    return LocalPathRules::fromProcess().pathForDirectory(kind, userDomain);
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
    return LocalPathRules::fromProcess().userDirectory();
}

QString QVLocalPaths::username() {
    return LocalPathRules::fromProcess().username();
}

QString QVLocalPaths::currentConsoleUser() {
    return LocalPathRules::fromProcess().currentConsoleUser();
}

QString QVLocalPaths::tempDirectory() {
    return LocalPathRules::fromProcess().tempDirectory();
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
    return LocalPathRules::fromProcess().mediaRoots();
}

QString QVLocalPaths::mediaDriveForPath(const QString& path) {
    return LocalPathRules::fromProcess().mediaDriveForPath(path);
}

bool QVLocalPaths::isConfiguredMediaRoot(const QString& root) {
    return LocalPathRules::fromProcess().isConfiguredMediaRoot(root);
}

bool QVLocalPaths::isPathSystemDirectory(const QString& path, bool exactMatch) {
    return LocalPathRules::fromProcess().isPathSystemDirectory(path, exactMatch);
}

bool QVLocalPaths::isPathOnTimeMachineVolume(const QString& path) {
    bool underMediaRoot = false;
    for (const QString& root : mediaRoots()) {
        underMediaRoot = underMediaRoot || path.startsWith(root);
    }
    return underMediaRoot && path.split(u'/').contains(QStringLiteral("Backups.backupdb"));
}
