#include "LocalPathRules.h"

#include <pwd.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QHash>
#include <utility>
#include <vector>

namespace {

using Directory = StandardDirectory;

// Everything the rules read from the environment.
constexpr const char* kVariables[] = {
    "HOME",          "TMPDIR",          "SUDO_USER",      "CARDSWEEP_MEDIA_ROOTS",
    "XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_STATE_HOME",
};

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

QString searchLocalDomain(Directory kind) {
    switch (kind) {
        case Directory::Applications:
            return QStringLiteral("/usr/share/applications");
        case Directory::AdminApplications:
            return QStringLiteral("/usr/sbin");
        case Directory::Library:
        case Directory::ApplicationSupport:
            return QStringLiteral("/usr/local/share");
        case Directory::Preferences:
            return QStringLiteral("/etc/xdg");
        case Directory::Caches:
            return QStringLiteral("/var/cache");
        case Directory::Logs:
            return QStringLiteral("/var/log");
        case Directory::SystemLibrary:
            return QStringLiteral("/usr/lib");
        case Directory::Documentation:
            return QStringLiteral("/usr/share/doc");
        case Directory::Documents:
        case Directory::Movies:
        case Directory::Desktop:
            return {};
    }
    return {};
}

}  // namespace

LocalPathRules::LocalPathRules(QProcessEnvironment environment, Identity identity,
                               SessionOwner sessionOwner)
    : environment_(std::move(environment)),
      identity_(std::move(identity)),
      sessionOwner_(std::move(sessionOwner)) {}

LocalPathRules LocalPathRules::fromProcess() {
    QProcessEnvironment environment;
    for (const char* name : kVariables) {
        if (qEnvironmentVariableIsSet(name)) {
            environment.insert(QString::fromLatin1(name), QString::fromLocal8Bit(qgetenv(name)));
        }
    }
    return LocalPathRules(environment, processIdentity(), nullptr);
}

LocalPathRules::Identity LocalPathRules::processIdentity() {
    const auto [owner, home] = userEntry(nullptr, geteuid());
    return Identity{geteuid() == 0, owner, home};
}

QString LocalPathRules::variable(const char* name) const {
    return environment_.value(QString::fromLatin1(name));
}

// The process's own home: $HOME first, so a test can move it.
QString LocalPathRules::processHome() const {
    const QString home = variable("HOME");
    return home.isEmpty() ? identity_.ownerHome : QDir::cleanPath(home);
}

QString LocalPathRules::xdgBase(const char* name, const char* fallback) const {
    const QString value = variable(name);
    if (value.startsWith(u'/')) {
        return QDir::cleanPath(value);
    }
    return processHome() + u'/' + QString::fromLatin1(fallback);
}

// XDG user directories from user-dirs.dirs ("$HOME/Documents" form).
QString LocalPathRules::xdgUserDir(const char* key, const char* fallback) const {
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

QString LocalPathRules::searchUserDomain(Directory kind) const {
    switch (kind) {
        case Directory::Applications:
            return xdgBase("XDG_DATA_HOME", ".local/share") + QStringLiteral("/applications");
        case Directory::AdminApplications:
            return processHome() + QStringLiteral("/.local/sbin");
        case Directory::Documents:
            return xdgUserDir("XDG_DOCUMENTS_DIR", "Documents");
        case Directory::Library:
        case Directory::ApplicationSupport:
            return xdgBase("XDG_DATA_HOME", ".local/share");
        case Directory::Preferences:
            return xdgBase("XDG_CONFIG_HOME", ".config");
        case Directory::Caches:
            return xdgBase("XDG_CACHE_HOME", ".cache");
        case Directory::Movies:
            return xdgUserDir("XDG_VIDEOS_DIR", "Videos");
        case Directory::Desktop:
            return xdgUserDir("XDG_DESKTOP_DIR", "Desktop");
        case Directory::Logs:
            return xdgBase("XDG_STATE_HOME", ".local/state") + QStringLiteral("/Logs");
        case Directory::SystemLibrary:
        case Directory::Documentation:
            return {};
    }
    return {};
}

QString LocalPathRules::currentConsoleUser() const {
    const QString owner = sessionOwner_ ? sessionOwner_() : QString();
    return owner.isEmpty() ? variable("SUDO_USER") : owner;
}

bool LocalPathRules::isElevated() const {
    if (!isSuperuser()) {
        return false;
    }
    const QString console = currentConsoleUser();
    return !console.isEmpty() && console != identity_.owner;
}

QString LocalPathRules::pathForDirectory(Directory kind, bool userDomain) const {
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

QString LocalPathRules::userDirectory() const {
    if (!isSuperuser()) {
        return processHome();
    }
    const QString console = currentConsoleUser();
    if (console.isEmpty() || console == identity_.owner) {
        return processHome();
    }
    const QString home = homeOfUser(console);
    return home.isEmpty() ? processHome() : home;
}

QString LocalPathRules::username() const {
    if (isSuperuser()) {
        const QString console = currentConsoleUser();
        if (!console.isEmpty()) {
            return console;
        }
    }
    return identity_.owner;
}

QString LocalPathRules::tempDirectory() const {
    const QString tmp = variable("TMPDIR");
    return tmp.startsWith(u'/') ? QDir::cleanPath(tmp) : QStringLiteral("/tmp");
}

QStringList LocalPathRules::configuredMediaRoots() const {
    QStringList roots;
    for (const QString& extra : variable("CARDSWEEP_MEDIA_ROOTS").split(u':', Qt::SkipEmptyParts)) {
        roots << QDir::cleanPath(extra) + u'/';
    }
    return roots;
}

QStringList LocalPathRules::mediaRoots() const {
    QStringList roots;
    for (const QString& name : {currentConsoleUser(), identity_.owner}) {
        if (!name.isEmpty()) {
            roots << QStringLiteral("/media/%1/").arg(name)
                  << QStringLiteral("/run/media/%1/").arg(name);
        }
    }
    roots << QStringLiteral("/media/") << QStringLiteral("/Volumes/");
    for (const QString& extra : configuredMediaRoots()) {
        roots.prepend(extra);
    }
    roots.removeDuplicates();
    return roots;
}

QString LocalPathRules::driveForPath(const QString& path, const QStringList& roots) {
    QString best;
    for (const QString& root : roots) {
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

QString LocalPathRules::mediaDriveForPath(const QString& path) const {
    return driveForPath(path, mediaRoots());
}

bool LocalPathRules::isConfiguredMediaRoot(const QString& root) const {
    return configuredMediaRoots().contains(root);
}

bool LocalPathRules::isPathSystemDirectory(const QString& input, bool exactMatch) const {
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
        QStringLiteral("/Users/Shared"), QStringLiteral("/Volumes"),
        QStringLiteral("/home"),         QStringLiteral("/media"),
        QStringLiteral("/run/media"),    QStringLiteral("/mnt"),
        QStringLiteral("/root"),         userDirectory(),
    };
    for (const Directory kind : {Directory::Applications, Directory::AdminApplications,
                                 Directory::Documents, Directory::Library, Directory::Preferences,
                                 Directory::Caches, Directory::ApplicationSupport}) {
        protectedPaths << pathForDirectory(kind, true) << pathForDirectory(kind, false);
    }
    protectedPaths << pathForDirectory(Directory::Desktop, true)
                   << pathForDirectory(Directory::SystemLibrary, false)
                   << pathForDirectory(Directory::Documentation, false);
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

QString LocalPathRules::sessionOwnerOf(const QString& properties) {
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
