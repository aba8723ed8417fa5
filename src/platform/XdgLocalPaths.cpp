#include "XdgLocalPaths.h"

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>

#include "ProcessRunner.h"

namespace {

// logind answers at once; a hung one must not hold up every path lookup.
constexpr double kTimeout = 5;

// The owner of an active graphical login session, asked of systemd-logind.
QString graphicalSessionOwner(ProcessRunner& processes) {
    const QString loginctl = QStringLiteral("/usr/bin/loginctl");
    if (!processes.isExecutable(loginctl)) {
        return {};
    }
    const QString sessions = QString::fromUtf8(
        processes
            .run(loginctl, {QStringLiteral("list-sessions"), QStringLiteral("--no-legend")},
                 kTimeout)
            .output);
    for (const QString& line : sessions.split(u'\n', Qt::SkipEmptyParts)) {
        const QStringList columns = line.simplified().split(u' ');
        if (columns.isEmpty()) {
            continue;
        }
        const ProcessResult answer =
            processes.run(loginctl,
                          {QStringLiteral("show-session"), columns.first(), QStringLiteral("-p"),
                           QStringLiteral("Name"), QStringLiteral("-p"), QStringLiteral("Type"),
                           QStringLiteral("-p"), QStringLiteral("Active"), QStringLiteral("-p"),
                           QStringLiteral("Class")},
                          kTimeout);
        const QString owner = LocalPathRules::sessionOwnerOf(QString::fromUtf8(answer.output));
        if (!owner.isEmpty()) {
            return owner;
        }
    }
    return {};
}

// logind's answer, kept for two seconds.
LocalPathRules::SessionOwner cachedSessionOwner(ProcessRunner& processes) {
    struct Cache {
        std::mutex mutex;
        QString owner;                                                 // guarded by mutex
        std::optional<std::chrono::steady_clock::time_point> askedAt;  // guarded by mutex
    };
    return [&processes, cache = std::make_shared<Cache>()] {
        const std::lock_guard lock(cache->mutex);
        const auto now = std::chrono::steady_clock::now();
        if (!cache->askedAt || now - *cache->askedAt > std::chrono::seconds(2)) {
            cache->owner = graphicalSessionOwner(processes);
            cache->askedAt = now;
        }
        return cache->owner;
    };
}

}  // namespace

XdgLocalPaths::XdgLocalPaths(const QProcessEnvironment& environment, ProcessRunner& processes)
    : rules_(environment, LocalPathRules::processIdentity(), cachedSessionOwner(processes)) {}

XdgLocalPaths XdgLocalPaths::fromProcess(ProcessRunner& processes) {
    return XdgLocalPaths(QProcessEnvironment::systemEnvironment(), processes);
}

QString XdgLocalPaths::pathForDirectory(StandardDirectory kind, bool userDomain) const {
    return rules_.pathForDirectory(kind, userDomain);
}

QString XdgLocalPaths::tempDirectory() const {
    return rules_.tempDirectory();
}

QString XdgLocalPaths::username() const {
    return rules_.username();
}

QStringList XdgLocalPaths::mediaRoots() const {
    return rules_.mediaRoots();
}

bool XdgLocalPaths::isConfiguredMediaRoot(const QString& root) const {
    return rules_.isConfiguredMediaRoot(root);
}

bool XdgLocalPaths::isPathSystemDirectory(const QString& path, bool exactMatch) const {
    return rules_.isPathSystemDirectory(path, exactMatch);
}

QString XdgLocalPaths::userDirectory() const {
    return rules_.userDirectory();
}

QString XdgLocalPaths::currentConsoleUser() const {
    return rules_.currentConsoleUser();
}

bool XdgLocalPaths::isElevated() const {
    return rules_.isElevated();
}
