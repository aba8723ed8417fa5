#include "PrivilegedToolPolicy.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <climits>
#include <cstdlib>
#include <optional>
#include <vector>

namespace {

// Argument slots of a shape; any other word must be given exactly.
const QString kPath = QStringLiteral("<path>");
const QString kMode = QStringLiteral("<mode>");
const QString kOwner = QStringLiteral("<owner>");
const QString kProgram = QStringLiteral("<program>");
const QString kLabel = QStringLiteral("<label>");
const QString kDevice = QStringLiteral("<device>");

struct Tool {
    QStringList paths;
    std::vector<QStringList> shapes;
};

// The tools by the paths Cardsweep runs them from (named ones as the superuser's PATH finds
// them), with every argument list it builds for them.
const std::vector<Tool>& tools() {
    static const std::vector<Tool> list{
        {{"/bin/rm"}, {{"-Rdf", kPath}, {"-R", "-f", kPath}}},
        {{"/bin/mv"}, {{"-f", kPath, kPath}}},
        {{"/bin/cp"}, {{"-f", "-p", "-R", kPath, kPath}}},
        {{"/bin/mkdir"}, {{"-p", kPath}}},
        {{"/usr/bin/touch"}, {{"-c", kPath}}},
        {{"/bin/chmod"}, {{kMode, kPath}}},
        {{"/bin/chown"}, {{kOwner, kPath}}},
        {{"/usr/bin/killall", "/bin/killall"}, {{kProgram}}},
        {{"/usr/bin/umount", "/bin/umount"}, {{kPath}}},
        {{"/usr/bin/fusermount3", "/usr/bin/fusermount", "/bin/fusermount3", "/bin/fusermount"},
         {{"-u", kPath}}},
        {{"/usr/sbin/mkfs.exfat", "/sbin/mkfs.exfat"}, {{kDevice}, {"-L", kLabel, kDevice}}},
        {{"/usr/sbin/mkfs.fat", "/sbin/mkfs.fat"},
         {{"-F", "32", kDevice}, {"-F", "32", "-n", kLabel, kDevice}}},
    };
    return list;
}

// Cardsweep's own programs, the only ones it stops.
const QStringList kPrograms{QStringLiteral("CardsweepHelper"), QStringLiteral("cardsweep"),
                            QStringLiteral("cardsweep-cli")};

// The system's own trees; "/run/media" and "/var/tmp" are excepted below.
const QStringList kSystemFolders{
    QStringLiteral("/etc"),   QStringLiteral("/usr"),    QStringLiteral("/bin"),
    QStringLiteral("/sbin"),  QStringLiteral("/lib"),    QStringLiteral("/lib32"),
    QStringLiteral("/lib64"), QStringLiteral("/libx32"), QStringLiteral("/boot"),
    QStringLiteral("/dev"),   QStringLiteral("/proc"),   QStringLiteral("/sys"),
    QStringLiteral("/run"),   QStringLiteral("/var"),    QStringLiteral("/opt"),
    QStringLiteral("/srv"),   QStringLiteral("/snap")};

bool isInside(const QString& path, const QString& folder) {
    return path.startsWith(folder + u'/') && path.size() > folder.size() + 1;
}

bool isSystemPath(const QString& path) {
    if (path == u"/")
        return true;
    if (isInside(path, QStringLiteral("/run/media")) || isInside(path, QStringLiteral("/var/tmp")))
        return false;
    for (const QString& folder : kSystemFolders) {
        if (path == folder || path.startsWith(folder + u'/'))
            return true;
    }
    return false;
}

bool lstatOf(const QString& path, struct stat* status) {
    return ::lstat(QFile::encodeName(path).constData(), status) == 0;
}

// The path as the kernel reaches it: its deepest existing ancestor with every link resolved
// (a dangling link by its target), then the components that don't exist yet.
QString resolved(const QString& path, int depth = 0) {
    if (!path.startsWith(u'/'))
        return {};
    QString existing = QDir::cleanPath(path);
    QStringList rest;
    QString head = QStringLiteral("/");
    while (existing != u"/") {
        const QByteArray encoded = QFile::encodeName(existing);
        char real[PATH_MAX];
        if (::realpath(encoded.constData(), real) != nullptr) {
            head = QFile::decodeName(real);
            break;
        }
        const qsizetype slash = existing.lastIndexOf(u'/');
        const QString parent = slash == 0 ? QStringLiteral("/") : existing.left(slash);
        struct stat status {};
        if (depth < 40 && lstatOf(existing, &status) && S_ISLNK(status.st_mode)) {
            const QString target = QFile::symLinkTarget(existing);
            if (!target.isEmpty())
                return resolved(target + u'/' + rest.join(u'/'), depth + 1);
        }
        rest.prepend(existing.mid(slash + 1));
        existing = parent;
    }
    return QDir::cleanPath(head + u'/' + rest.join(u'/'));
}

QString readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromLatin1(file.readAll()) : QString();
}

std::optional<uint> parsedId(const QString& text) {
    bool ok = false;
    const qulonglong id = text.toULongLong(&ok, 10);
    if (!ok || id > 0xFFFFFFFEULL)
        return std::nullopt;
    return static_cast<uint>(id);
}

// An account by name or number: its uid, primary gid, name and home.
struct Account {
    uid_t uid = 0;
    gid_t gid = 0;
    QByteArray name;
    QString home;
};

std::optional<Account> account(const QString& nameOrId) {
    struct passwd entry {};
    struct passwd* found = nullptr;
    std::vector<char> buffer(16384);
    const QByteArray name = nameOrId.toLocal8Bit();
    ::getpwnam_r(name.constData(), &entry, buffer.data(), buffer.size(), &found);
    const std::optional<uint> id = parsedId(nameOrId);
    if (found == nullptr && id)
        ::getpwuid_r(*id, &entry, buffer.data(), buffer.size(), &found);
    if (found == nullptr)
        return std::nullopt;
    return Account{found->pw_uid, found->pw_gid, found->pw_name, QFile::decodeName(found->pw_dir)};
}

std::optional<gid_t> groupId(const QString& nameOrId) {
    struct group entry {};
    struct group* found = nullptr;
    std::vector<char> buffer(65536);
    const QByteArray name = nameOrId.toLocal8Bit();
    ::getgrnam_r(name.constData(), &entry, buffer.data(), buffer.size(), &found);
    if (found != nullptr)
        return found->gr_gid;
    return parsedId(nameOrId);
}

}  // namespace

PrivilegedToolPolicy::Caller PrivilegedToolPolicy::callerOfThisProcess() {
    Caller caller;
    caller.uid = ::getuid();
    if (caller.uid == 0) {
        // pkexec and sudo set these for the user who asked; nobody else can set them for root.
        for (const char* name : {"PKEXEC_UID", "SUDO_UID"}) {
            const std::optional<uint> uid = parsedId(qEnvironmentVariable(name));
            if (uid) {
                caller.uid = *uid;
                break;
            }
        }
    }
    if (const std::optional<Account> found = account(QString::number(caller.uid)))
        caller.home = found->home;
    return caller;
}

PrivilegedToolPolicy::PrivilegedToolPolicy(Caller caller) : caller_(std::move(caller)) {}

QString PrivilegedToolPolicy::refusal(const QString& tool, const QStringList& arguments) const {
    const Tool* known = nullptr;
    for (const Tool& entry : tools()) {
        if (entry.paths.contains(tool))
            known = &entry;
    }
    if (known == nullptr)
        return QStringLiteral("%1 is not one of Cardsweep's tools").arg(tool);
    const QStringList* shape = nullptr;
    for (const QStringList& candidate : known->shapes) {
        if (candidate.size() != arguments.size())
            continue;
        bool fits = true;
        for (qsizetype i = 0; i < candidate.size() && fits; ++i)
            fits = candidate[i].startsWith(u'<') || candidate[i] == arguments[i];
        if (fits)
            shape = &candidate;
    }
    if (shape == nullptr)
        return QStringLiteral("these arguments are not ones Cardsweep gives %1").arg(tool);
    for (qsizetype i = 0; i < shape->size(); ++i) {
        const QString& slot = (*shape)[i];
        const QString& word = arguments[i];
        QString why;
        if (slot == kPath)
            why = pathRefusal(word);
        else if (slot == kMode)
            why = modeRefusal(word);
        else if (slot == kOwner)
            why = ownerRefusal(word);
        else if (slot == kDevice)
            why = deviceRefusal(word);
        else if (slot == kProgram && !kPrograms.contains(word))
            why = QStringLiteral("%1 is not one of Cardsweep's programs").arg(word);
        if (!why.isEmpty())
            return why;
    }
    return {};
}

QString PrivilegedToolPolicy::pathRefusal(const QString& path) const {
    if (!path.startsWith(u'/'))
        return QStringLiteral("%1 is not an absolute path").arg(path);
    if (path.split(u'/').contains(QStringLiteral("..")))
        return QStringLiteral("%1 climbs out of its folder").arg(path);
    const QString clean = QDir::cleanPath(path);
    // The entry itself (a link is acted on as a link) and what it leads to (tools follow it).
    const qsizetype slash = clean.lastIndexOf(u'/');
    const QString parent = slash <= 0 ? QStringLiteral("/") : clean.left(slash);
    const QString entry = QDir::cleanPath(resolved(parent) + u'/' + clean.mid(slash + 1));
    for (const QString& place : {entry, resolved(clean)}) {
        QString why = placeRefusal(place);
        if (why.isEmpty())
            why = sharedFolderRefusal(place);
        if (!why.isEmpty())
            return place == clean ? why : QStringLiteral("%1 (given as %2)").arg(why, path);
    }
    return {};
}

QString PrivilegedToolPolicy::placeRefusal(const QString& place) const {
    if (isSystemPath(place))
        return QStringLiteral("%1 is in a system folder").arg(place);
    const QString home = QDir::cleanPath(caller_.home);
    const bool ownHome = !caller_.home.isEmpty() && !isSystemPath(home) && isInside(place, home);
    if (ownHome || isInside(place, QStringLiteral("/tmp")) ||
        isInside(place, QStringLiteral("/var/tmp")) || isInside(place, QStringLiteral("/mnt")))
        return {};
    // Cards and destinations: inside the caller's own folder of a mount root, or on a drive
    // mounted straight under /media.
    for (const QString& root : {QStringLiteral("/media"), QStringLiteral("/run/media")}) {
        if (!isInside(place, root))
            continue;
        const QString first = place.mid(root.size() + 1).section(u'/', 0, 0);
        const std::optional<Account> owner = account(first);
        const bool beyond = isInside(place, root + u'/' + first);
        if (!owner && root == u"/media")
            return {};
        if (owner && beyond && (caller_.uid == 0 || owner->uid == caller_.uid))
            return {};
    }
    return QStringLiteral("%1 is outside the places Cardsweep writes").arg(place);
}

// In a folder everyone may write to (a sticky /tmp), only what the caller made is theirs.
QString PrivilegedToolPolicy::sharedFolderRefusal(const QString& place) const {
    QString folder = QStringLiteral("/");
    for (const QString& name : place.split(u'/', Qt::SkipEmptyParts)) {
        const QString entry = QDir::cleanPath(folder + u'/' + name);
        struct stat status {};
        if (!lstatOf(folder, &status))
            return {};
        const bool shared =
            S_ISDIR(status.st_mode) && (status.st_mode & S_IWOTH) && (status.st_mode & S_ISVTX);
        if (!lstatOf(entry, &status))
            return {};
        if (shared && status.st_uid != caller_.uid)
            return QStringLiteral("%1 belongs to another user").arg(entry);
        folder = entry;
    }
    return {};
}

QString PrivilegedToolPolicy::modeRefusal(const QString& mode) const {
    static const QRegularExpression numeric(QStringLiteral("^0*[0-7]{1,4}$"));
    static const QRegularExpression symbolic(
        QStringLiteral("^[ugoa]*([-+=]([rwxXt]*|[ugo]))+(,[ugoa]*([-+=]([rwxXt]*|[ugo]))+)*$"));
    const bool plain = numeric.match(mode).hasMatch()
                           ? (mode.toUInt(nullptr, 8) & (S_ISUID | S_ISGID)) == 0
                           : symbolic.match(mode).hasMatch();
    if (plain)
        return {};
    return QStringLiteral("mode %1 is not a plain mode (set-user and set-group bits are refused)")
        .arg(mode);
}

QString PrivilegedToolPolicy::ownerRefusal(const QString& owner) const {
    const std::optional<Account> user = account(owner.section(u':', 0, 0));
    if (!user || user->uid != caller_.uid)
        return QStringLiteral("%1 is not the user who asked").arg(owner);
    if (!owner.contains(u':'))
        return {};
    const std::optional<gid_t> gid = groupId(owner.section(u':', 1));
    std::vector<gid_t> groups(1024);
    int count = int(groups.size());
    if (gid && ::getgrouplist(user->name.constData(), user->gid, groups.data(), &count) >= 0) {
        groups.resize(std::size_t(count));
        for (const gid_t member : groups) {
            if (member == *gid)
                return {};
        }
    }
    return QStringLiteral("%1 is not a group of the user who asked").arg(owner);
}

// Only a removable card (or a loop device) that nothing has mounted is formatted.
QString PrivilegedToolPolicy::deviceRefusal(const QString& device) const {
    const QString real = resolved(device);
    struct stat status {};
    if (!real.startsWith(QStringLiteral("/dev/")) ||
        ::stat(QFile::encodeName(real).constData(), &status) != 0 || !S_ISBLK(status.st_mode))
        return QStringLiteral("%1 is not a block device").arg(device);
    const QString number =
        QStringLiteral("%1:%2").arg(major(status.st_rdev)).arg(minor(status.st_rdev));
    for (const QString& line : readFile(QStringLiteral("/proc/self/mountinfo")).split(u'\n')) {
        if (line.section(u' ', 2, 2) == number)
            return QStringLiteral("%1 is mounted").arg(device);
    }
    const QString sys = resolved(QStringLiteral("/sys/dev/block/") + number);
    const bool loop = sys.contains(QStringLiteral("/virtual/block/loop"));
    const bool removable = readFile(sys + QStringLiteral("/removable")).startsWith(u'1') ||
                           readFile(sys + QStringLiteral("/../removable")).startsWith(u'1') ||
                           sys.contains(QStringLiteral("/usb"));
    if (!loop && !removable)
        return QStringLiteral("%1 is not a removable card").arg(device);
    return {};
}
