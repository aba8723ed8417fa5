#include "QVLaunchd.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QThread>

#include "LocalPaths.h"
#include "ProcessRunner.h"
#include "QVAuthorization.h"
#include "QVLog.h"
#include "SystemLog.h"

namespace {

constexpr double kTimeout = 10;

// One ExecStart word: quoted, with systemd's own expansions ($, %) and escapes made literal.
QString execWord(QString word) {
    word.replace(u'\\', QStringLiteral("\\\\"))
        .replace(u'"', QStringLiteral("\\\""))
        .replace(u'\n', QStringLiteral("\\n"))
        .replace(u'$', QStringLiteral("$$"))
        .replace(u'%', QStringLiteral("%%"));
    return u'"' + word + u'"';
}

// Settings values hold no line breaks; anything else is written as it is.
QString oneLine(QString value) {
    return value.replace(u'\n', u' ').replace(u'%', QStringLiteral("%%"));
}

}  // namespace

QVLaunchd::QVLaunchd(ProcessRunner& processes, const LocalPaths& paths,
                     QVAuthorization* authorization, Alert alert)
    : processes_(processes),
      paths_(paths),
      authorization_(authorization),
      alert_(std::move(alert)) {}

QString QVLaunchd::jobFolder(bool user, bool launchAgent) const {
    if (!launchAgent)
        return QStringLiteral("/etc/systemd/system");
    if (!user)
        return QStringLiteral("/etc/systemd/user");
    return paths_.pathForDirectory(StandardDirectory::Preferences, true) +
           QStringLiteral("/systemd/user");
}

QString QVLaunchd::jobFile(const QString& label, bool user, bool launchAgent) const {
    return jobFolder(user, launchAgent) + QStringLiteral("/%1.service").arg(label);
}

QByteArray QVLaunchd::unitText(const PropertyList& job) {
    const QString label = job[QStringLiteral("Label")].toString();
    const bool onMount = job[QStringLiteral("StartOnMount")].toBool();
    QStringList words{job[QStringLiteral("Program")].toString()};
    const QStringList arguments = job[QStringLiteral("ProgramArguments")].toStringList();
    words << arguments.mid(1);  // the first is the program's own name
    QStringList exec;
    for (const QString& word : words)
        exec << execWord(word);
    QString unit;
    unit += QStringLiteral("# Written by Cardsweep; removed when automatic transfer is off.\n");
    unit += QStringLiteral("[Unit]\nDescription=Cardsweep %1\n\n[Service]\n").arg(oneLine(label));
    // Started on every mount: a service that stays and watches mounts itself.
    unit += onMount ? QStringLiteral("Type=simple\nRestart=on-failure\nRestartSec=5\n")
                    : QStringLiteral("Type=oneshot\n");
    unit += QStringLiteral("ExecStart=%1\n").arg(exec.join(u' '));
    const QString folder = job[QStringLiteral("WorkingDirectory")].toString();
    if (!folder.isEmpty())
        unit += QStringLiteral("WorkingDirectory=%1\n").arg(execWord(folder));
    unit += QStringLiteral("\n[Install]\nWantedBy=default.target\n");
    return unit.toUtf8();
}

void QVLaunchd::systemctl(bool user, bool launchAgent, QStringList arguments) {
    if (launchAgent)
        arguments.prepend(user ? QStringLiteral("--user") : QStringLiteral("--global"));
    processes_.run(QStringLiteral("systemctl"), arguments, kTimeout);
}

void QVLaunchd::unableToWrite(const QString& title, const QString& folder) {
    if (alert_)
        alert_(title, QStringLiteral("Please check you have correct permissions for the "
                                     "directory %1.")
                          .arg(folder));
}

bool QVLaunchd::writeThroughTemporaryFile(const QString& folder, const QString& file,
                                          const QByteArray& unit) {
    const QString temporary = paths_.tempDirectory() + u'/' + QFileInfo(file).fileName();
    QSaveFile spare(temporary);
    if (!spare.open(QIODevice::WriteOnly) || spare.write(unit) != unit.size() || !spare.commit()) {
        QVLog::appendLog(
            u"Error: Unable to create LaunchAgent. Please check you have correct permissions "
            u"for the directory %@",
            folder);
        SystemLog::write(QStringLiteral("Error: Unable to write LaunchAgent data. Please check you "
                                        "have correct permissions for the directory %1")
                             .arg(folder));
        unableToWrite(QStringLiteral("Error: Unable to write LaunchAgent data"), folder);
        return false;
    }
    if (QFileInfo::exists(file) && authorization_ != nullptr)
        authorization_->authRemoveFile(file);
    QVLog::appendLog(u"Unable to write launchd plist - trying to authorize...");
    const bool moved = authorization_ != nullptr && authorization_->authMoveFile(temporary, file);
    QFile::remove(temporary);
    if (moved)
        return true;
    const QString line = QStringLiteral(
                             "Error: Unable to create LaunchAgent. Please check you have "
                             "correct permissions for the directory %1")
                             .arg(folder);
    QVLog::appendLog(line);
    SystemLog::write(line);
    unableToWrite(QStringLiteral("Error: Unable to create LaunchAgent"), folder);
    return false;
}

bool QVLaunchd::startJob(const QString& label, const PropertyList& settings, bool user,
                         bool launchAgent, bool shouldAuth, const QString& killProcessName) {
    const QString folder = jobFolder(user, launchAgent);
    if (!QFileInfo(folder).isDir() && !QDir().mkpath(folder) && shouldAuth &&
        authorization_ != nullptr)
        authorization_->authCreateDir(folder);
    const QString file = jobFile(label, user, launchAgent);
    if (QFileInfo::exists(file))
        removeJob(label, user, launchAgent, shouldAuth);

    const QByteArray unit = unitText(settings);
    bool authorized = shouldAuth;
    QSaveFile direct(file);
    const bool written =
        direct.open(QIODevice::WriteOnly) && direct.write(unit) == unit.size() && direct.commit();
    if (!written) {
        if (!writeThroughTemporaryFile(folder, file, unit))
            return false;
        authorized = true;
    }
    if (!killProcessName.isEmpty())
        processes_.run(QStringLiteral("killall"), {killProcessName}, kTimeout);
    const QString mode = QStringLiteral("644");
    if (authorized && authorization_ != nullptr) {
        if (!user)
            authorization_->authExecTask(QStringLiteral("/bin/chown"),
                                         {QStringLiteral("root:root"), file});
        authorization_->authExecTask(QStringLiteral("/bin/chmod"), {mode, file});
    } else {
        if (!user)
            processes_.run(QStringLiteral("chown"), {QStringLiteral("root:root"), file}, kTimeout);
        processes_.run(QStringLiteral("chmod"), {mode, file}, kTimeout);
    }
    const QString name = QFileInfo(file).fileName();
    systemctl(user, launchAgent, {QStringLiteral("disable"), QStringLiteral("--now"), name});
    if (!launchAgent || user) {
        systemctl(user, launchAgent, {QStringLiteral("daemon-reload")});
        systemctl(user, launchAgent, {QStringLiteral("enable"), QStringLiteral("--now"), name});
    } else {
        systemctl(user, launchAgent, {QStringLiteral("enable"), name});  // for every user
    }
    return true;
}

bool QVLaunchd::startLaunchAgent(const QString& label, const PropertyList& settings, bool user) {
    return startJob(label, settings, user, true, false);
}

void QVLaunchd::stopJob(const QString& label, bool user, bool launchAgent, bool shouldAuth) {
    static_cast<void>(shouldAuth);
    if (label.isEmpty())
        return;
    const QString name = QFileInfo(jobFile(label, user, launchAgent)).fileName();
    if (launchAgent && !user) {
        systemctl(user, launchAgent, {QStringLiteral("disable"), name});
        return;
    }
    systemctl(user, launchAgent, {QStringLiteral("disable"), QStringLiteral("--now"), name});
    systemctl(user, launchAgent, {QStringLiteral("reset-failed"), name});
}

void QVLaunchd::removeJob(const QString& label, bool user, bool launchAgent, bool shouldAuth) {
    stopJob(label, user, launchAgent, shouldAuth);
    const QString file = jobFile(label, user, launchAgent);
    if (!QFileInfo::exists(file))
        return;
    const bool removed = QFile::remove(file) || (shouldAuth && authorization_ != nullptr &&
                                                 authorization_->authRemoveFile(file));
    if (removed) {
        QThread::usleep(500);
        if (!launchAgent || user)
            systemctl(user, launchAgent, {QStringLiteral("daemon-reload")});
        return;
    }
    if (shouldAuth)
        unableToWrite(QStringLiteral("Error: Unable to remove LaunchAgent"),
                      jobFolder(user, launchAgent));
}

void QVLaunchd::removeLaunchAgent(const QString& label, bool user) {
    static_cast<void>(user);  // the application only ever uses the user's own agents
    removeJob(label, true, true, true);
}
