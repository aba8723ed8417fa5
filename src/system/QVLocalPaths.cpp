#include "QVLocalPaths.h"

#include <pwd.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QHash>
#include <QRandomGenerator>
#include <QUuid>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <utility>
#include <vector>

#include "QVTaskEx.h"

namespace {

QString environment(const char* name) {
    return QString::fromLocal8Bit(qgetenv(name));
}

// The user database entry as (name, home); any thread may ask, so the reentrant calls.
std::pair<QString, QString> userEntry(const char* name, uid_t uid) {
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> buffer(16384);
    const int error = name != nullptr
                          ? getpwnam_r(name, &entry, buffer.data(), buffer.size(), &found)
                          : getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found);
    if (error != 0 || found == nullptr)
        return {};
    return {QString::fromLocal8Bit(entry.pw_name), QString::fromLocal8Bit(entry.pw_dir)};
}

QString homeOfUser(const QString& name) {
    return userEntry(name.toLocal8Bit().constData(), 0).second;
}

QString processOwnerName() {
    return userEntry(nullptr, geteuid()).first;
}

// The process's own home: $HOME first, so a test can move it.
QString processHome() {
    const QString home = environment("HOME");
    if (!home.isEmpty()) {
        return QDir::cleanPath(home);
    }
    return userEntry(nullptr, geteuid()).second;
}

QString xdgBase(const char* variable, const char* fallback) {
    const QString value = environment(variable);
    if (value.startsWith(u'/')) {
        return QDir::cleanPath(value);
    }
    return processHome() + u'/' + QString::fromLatin1(fallback);
}

// XDG user directories from user-dirs.dirs ("$HOME/Documents" form).
QString xdgUserDir(const char* key, const char* fallback) {
    QFile file(xdgBase("XDG_CONFIG_HOME", ".config") + QStringLiteral("/user-dirs.dirs"));
    if (file.open(QIODevice::ReadOnly)) {
        const QString prefix = QString::fromLatin1(key) + QStringLiteral("=\"");
        for (const QString& line : QString::fromUtf8(file.readAll()).split(u'\n')) {
            if (!line.startsWith(prefix) || !line.endsWith(u'"')) {
                continue;
            }
            QString value = line.mid(prefix.size(), line.size() - prefix.size() - 1);
            value.replace(QStringLiteral("$HOME"), processHome());
            if (value.startsWith(u'/') && QDir::cleanPath(value) != processHome()) {
                return QDir::cleanPath(value);
            }
        }
    }
    return processHome() + u'/' + QString::fromLatin1(fallback);
}

QString searchUserDomain(QVLocalPaths::Directory kind) {
    using D = QVLocalPaths::Directory;
    switch (kind) {
        case D::Applications:
            return xdgBase("XDG_DATA_HOME", ".local/share") + QStringLiteral("/applications");
        case D::AdminApplications:
            return processHome() + QStringLiteral("/.local/sbin");
        case D::Documents:
            return xdgUserDir("XDG_DOCUMENTS_DIR", "Documents");
        case D::Library:
        case D::ApplicationSupport:
            return xdgBase("XDG_DATA_HOME", ".local/share");
        case D::Preferences:
            return xdgBase("XDG_CONFIG_HOME", ".config");
        case D::Caches:
            return xdgBase("XDG_CACHE_HOME", ".cache");
        case D::Movies:
            return xdgUserDir("XDG_VIDEOS_DIR", "Videos");
        case D::Desktop:
            return xdgUserDir("XDG_DESKTOP_DIR", "Desktop");
        case D::Logs:
            return xdgBase("XDG_STATE_HOME", ".local/state") + QStringLiteral("/Logs");
        case D::SystemLibrary:
        case D::Documentation:
            return {};
    }
    return {};
}

QString searchLocalDomain(QVLocalPaths::Directory kind) {
    using D = QVLocalPaths::Directory;
    switch (kind) {
        case D::Applications:
            return QStringLiteral("/usr/share/applications");
        case D::AdminApplications:
            return QStringLiteral("/usr/sbin");
        case D::Library:
        case D::ApplicationSupport:
            return QStringLiteral("/usr/local/share");
        case D::Preferences:
            return QStringLiteral("/etc/xdg");
        case D::Caches:
            return QStringLiteral("/var/cache");
        case D::Logs:
            return QStringLiteral("/var/log");
        case D::SystemLibrary:
            return QStringLiteral("/usr/lib");
        case D::Documentation:
            return QStringLiteral("/usr/share/doc");
        case D::Documents:
        case D::Movies:
        case D::Desktop:
            return {};
    }
    return {};
}

// The owner of an active graphical login session, asked of systemd-logind.
QString graphicalSessionOwner() {
    const QString loginctl = QStringLiteral("/usr/bin/loginctl");
    if (access(loginctl.toLocal8Bit().constData(), X_OK) != 0) {
        return {};
    }
    const QString sessions = QVTaskEx::stringFromTask(
        loginctl, {QStringLiteral("list-sessions"), QStringLiteral("--no-legend")});
    for (const QString& line : sessions.split(u'\n', Qt::SkipEmptyParts)) {
        const QStringList columns = line.simplified().split(u' ');
        if (columns.isEmpty()) {
            continue;
        }
        const QString owner = QVLocalPaths::sessionOwner(QVTaskEx::stringFromTask(
            loginctl, {QStringLiteral("show-session"), columns.first(), QStringLiteral("-p"),
                       QStringLiteral("Name"), QStringLiteral("-p"), QStringLiteral("Type"),
                       QStringLiteral("-p"), QStringLiteral("Active"), QStringLiteral("-p"),
                       QStringLiteral("Class")}));
        if (!owner.isEmpty()) {
            return owner;
        }
    }
    return {};
}

}  // namespace

QString QVLocalPaths::sessionOwner(const QString& properties) {
    QHash<QString, QString> values;
    for (const QString& line : properties.split(u'\n', Qt::SkipEmptyParts)) {
        const qsizetype equals = line.indexOf(u'=');
        if (equals > 0) {
            values.insert(line.left(equals), line.mid(equals + 1).trimmed());
        }
    }
    const QString type = values.value(QStringLiteral("Type"));
    const bool graphical = type == QStringLiteral("x11") || type == QStringLiteral("wayland");
    // The login screen's greeter runs a graphical session too, of class "greeter".
    if (!graphical || values.value(QStringLiteral("Active")) != QStringLiteral("yes") ||
        values.value(QStringLiteral("Class")) != QStringLiteral("user")) {
        return {};
    }
    return values.value(QStringLiteral("Name"));
}

bool QVLocalPaths::isSuperuser() {
    return geteuid() == 0;
}

bool QVLocalPaths::isElevated() {
    if (!isSuperuser()) {
        return false;
    }
    const QString console = currentConsoleUser();
    return !console.isEmpty() && console != processOwnerName();
}

QString QVLocalPaths::pathForDirectory(Directory kind, bool userDomain) {
    const QString found = userDomain ? searchUserDomain(kind) : searchLocalDomain(kind);
    if (found.isEmpty() || !userDomain || !isElevated()) {
        return found;
    }
    // As the superuser, the person at the console owns the "user" folders.
    const QString ownHome = processHome();
    if (ownHome.isEmpty() || (found != ownHome && !found.startsWith(ownHome + u'/'))) {
        return found;
    }
    return userDirectory() + found.mid(ownHome.size());
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
    if (!isSuperuser()) {
        return processHome();
    }
    const QString console = currentConsoleUser();
    if (console.isEmpty() || console == processOwnerName()) {
        return processHome();
    }
    const QString home = homeOfUser(console);
    return home.isEmpty() ? processHome() : home;
}

QString QVLocalPaths::username() {
    if (isSuperuser()) {
        const QString console = currentConsoleUser();
        if (!console.isEmpty()) {
            return console;
        }
    }
    return processOwnerName();
}

QString QVLocalPaths::currentConsoleUser() {
    // Asking logind spawns processes; the answer changes rarely, so keep it briefly.
    static std::mutex mutex;
    static QString cached;
    static std::time_t cachedAt = 0;
    const std::lock_guard lock(mutex);
    const std::time_t now = std::time(nullptr);
    if (cachedAt == 0 || now - cachedAt > 2) {
        cached = graphicalSessionOwner();
        cachedAt = now;
    }
    if (!cached.isEmpty()) {
        return cached;
    }
    return environment("SUDO_USER");
}

QString QVLocalPaths::tempDirectory() {
    const QString tmp = environment("TMPDIR");
    return tmp.startsWith(u'/') ? QDir::cleanPath(tmp) : QStringLiteral("/tmp");
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
    QStringList roots;
    const QString user = processOwnerName();
    const QString console = currentConsoleUser();
    for (const QString& name : {console, user}) {
        if (!name.isEmpty()) {
            roots << QStringLiteral("/media/%1/").arg(name)
                  << QStringLiteral("/run/media/%1/").arg(name);
        }
    }
    roots << QStringLiteral("/media/") << QStringLiteral("/Volumes/");
    for (const QString& extra :
         environment("CARDSWEEP_MEDIA_ROOTS").split(u':', Qt::SkipEmptyParts)) {
        roots.prepend(QDir::cleanPath(extra) + u'/');
    }
    roots.removeDuplicates();
    return roots;
}

QString QVLocalPaths::mediaDriveForPath(const QString& path) {
    QString best;
    for (const QString& root : mediaRoots()) {
        if (path.startsWith(root) && root.size() > best.size())
            best = root;
    }
    if (best.isEmpty())
        return {};
    const QString component = path.mid(best.size()).section(u'/', 0, 0);
    if (component.isEmpty())
        return {};
    return best + component;
}

bool QVLocalPaths::isConfiguredMediaRoot(const QString& root) {
    for (const QString& extra :
         environment("CARDSWEEP_MEDIA_ROOTS").split(u':', Qt::SkipEmptyParts)) {
        if (QDir::cleanPath(extra) + u'/' == root)
            return true;
    }
    return false;
}

bool QVLocalPaths::isPathSystemDirectory(const QString& input, bool exactMatch) {
    if (input == QStringLiteral("/")) {
        return true;
    }
    if (input.size() < 3) {
        return false;
    }
    QString path = input;
    // Cuts two characters, not one: "/home/ann/Desktop/" compares as ".../Deskto".
    if (path.endsWith(u'/')) {
        path.chop(2);
    }
    QStringList protectedPaths = {
        applicationDirectory(true),
        applicationDirectory(false),
        adminApplicationDirectory(true),
        adminApplicationDirectory(false),
        documentDirectory(true),
        documentDirectory(false),
        libraryDirectory(true),
        libraryDirectory(false),
        prefsDirectory(true),
        prefsDirectory(false),
        cacheDirectory(true),
        cacheDirectory(false),
        appSupportDirectory(true),
        appSupportDirectory(false),
        desktopDirectory(),
        userDirectory(),
        systemLibraryDirectory(),
        localDocumentationDirectory(),
        QStringLiteral("/Users/Shared"),
        QStringLiteral("/Volumes"),
        QStringLiteral("/home"),
        QStringLiteral("/media"),
        QStringLiteral("/run/media"),
        QStringLiteral("/mnt"),
        QStringLiteral("/root"),
    };
    // A media root holds every mounted card: emptying it would empty them all.
    for (const QString& root : mediaRoots()) {
        protectedPaths << root.chopped(1);
    }
    for (const QString& candidate : protectedPaths) {
        if (!candidate.isEmpty() && path == candidate) {
            return true;
        }
    }
    if (exactMatch) {
        return false;
    }
    // Plain prefixes, as they always were: "/usrdata" and "/various" count too.
    static const QStringList plainPrefixes = {
        QStringLiteral("/usr"),
        QStringLiteral("/var"),
        QStringLiteral("/private/var"),
        QStringLiteral("/System"),
    };
    // The Linux system folders count as whole components only, so "/library" is free.
    static const QStringList systemFolders = {
        QStringLiteral("/etc"),  QStringLiteral("/boot"), QStringLiteral("/proc"),
        QStringLiteral("/sys"),  QStringLiteral("/dev"),  QStringLiteral("/bin"),
        QStringLiteral("/sbin"), QStringLiteral("/lib"),
    };
    for (const QString& prefix : plainPrefixes) {
        if (path.startsWith(prefix)) {
            return true;
        }
    }
    for (const QString& folder : systemFolders) {
        if (path == folder || path.startsWith(folder + u'/')) {
            return true;
        }
    }
    return false;
}

bool QVLocalPaths::isPathOnTimeMachineVolume(const QString& path) {
    bool underMediaRoot = false;
    for (const QString& root : mediaRoots()) {
        underMediaRoot = underMediaRoot || path.startsWith(root);
    }
    return underMediaRoot && path.split(u'/').contains(QStringLiteral("Backups.backupdb"));
}
