#include "QVAuthorization.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>

#include "Clock.h"
#include "LocalPaths.h"
#include "PrivilegedSession.h"
#include "PrivilegedToolPolicy.h"
#include "ProcessRunner.h"
#include "QVLocalPaths.h"
#include "QVLog.h"
#include "SystemLog.h"

namespace {

constexpr int kRefused = 126;
const QString kRemove = QStringLiteral("/bin/rm");
const QString kMove = QStringLiteral("/bin/mv");
const QString kCopy = QStringLiteral("/bin/cp");
const QString kMakeFolder = QStringLiteral("/bin/mkdir");

}  // namespace

QVAuthorization::QVAuthorization(ProcessRunner& processes, const LocalPaths& paths,
                                 const Clock& clock, bool hasGUI)
    : QVAuthorization(processes, paths, clock, hasGUI, Approval{}) {}

QVAuthorization::QVAuthorization(ProcessRunner& processes, const LocalPaths& paths,
                                 const Clock& clock, bool hasGUI, Approval approval)
    : processes_(processes),
      paths_(paths),
      clock_(clock),
      hasGUI_(hasGUI),
      approval_(std::move(approval)),
      userDirectory_(QDir::homePath()) {}

QVAuthorization::~QVAuthorization() = default;

bool QVAuthorization::runsAsRoot() const {
    return processes_.runsAsRoot();
}

QString QVAuthorization::runner() const {
    return approval_.runner.isEmpty()
               ? LocalPaths::helperProgram(QStringLiteral("CardsweepAuthTool"))
               : approval_.runner;
}

bool QVAuthorization::isAuthorized() const {
    const std::lock_guard lock(mutex_);
    return runsAsRoot() || (session_ && session_->ready());
}

bool QVAuthorization::canAuthorize() const {
    return hasGUI_ || runsAsRoot();
}

bool QVAuthorization::startSession(const QStringList& prefix, const QByteArray& input) {
    auto session = std::make_shared<PrivilegedSession>(processes_, prefix, runner(), input);
    const std::lock_guard lock(mutex_);
    if (!session->ready())
        return false;
    session_ = std::move(session);
    return true;
}

bool QVAuthorization::authStart() {
    // One approval for every thread: a second caller waits for the first one's dialog.
    const std::lock_guard approving(approving_);
    if (isAuthorized())
        return true;
    if (!hasGUI_) {
        SystemLog::write(QStringLiteral("Unable to authorize"));
        return false;
    }
    return startSession(approval_.dialog, {});
}

bool QVAuthorization::authStartWithUser(const QString& user, const QString& password) {
    if (runsAsRoot())
        return true;
    if (user.isEmpty() || password.isEmpty())
        return false;
    const std::lock_guard approving(approving_);
    if (user == paths_.username() && startSession(approval_.password, password.toUtf8() + '\n'))
        return true;
    authEnd();
    SystemLog::write(QStringLiteral("Authorization failed. Invalid username or password"));
    QVLog::appendLog(u"Authorization failed. Invalid username or password");
    return false;
}

void QVAuthorization::authEnd() {
    std::shared_ptr<PrivilegedSession> ending;
    const std::lock_guard lock(mutex_);
    ending.swap(session_);
}

QString QVAuthorization::refusalForTask(const QString& tool, const QStringList& parameters) {
    return PrivilegedToolPolicy(PrivilegedToolPolicy::callerOfThisProcess())
        .refusal(tool, parameters);
}

bool QVAuthorization::refused(const QString& tool, const QStringList& parameters) const {
    const QString refusal = refusalForTask(tool, parameters);
    if (refusal.isEmpty())
        return false;
    SystemLog::write(QStringLiteral("Refused to run %1: %2").arg(tool, refusal));
    return true;
}

int QVAuthorization::authExecTask(const QString& tool, const QStringList& parameters, bool async) {
    if (!QFileInfo::exists(tool)) {
        SystemLog::write(QStringLiteral("Unable to execute task: path %1 doesn't exist").arg(tool));
        return -2;
    }
    // Refused here as the runner would refuse it, before anyone is asked for approval.
    if (refused(tool, parameters))
        return kRefused;
    if (runsAsRoot()) {
        if (async)
            processes_.start(tool, parameters);
        else
            processes_.run(tool, parameters);
        return 0;
    }
    if (!isAuthorized() && !authStart())
        return -1;
    std::shared_ptr<PrivilegedSession> session;
    {
        const std::lock_guard lock(mutex_);
        session = session_;
    }
    return session ? session->execute(tool, parameters) : -1;
}

bool QVAuthorization::runTool(const QString& tool, const QStringList& parameters) {
    if (!runsAsRoot())
        return authExecTask(tool, parameters) == 0;
    // As root nothing stands between us and the tool: the runner's own rule is applied here.
    return !refused(tool, parameters) && processes_.run(tool, parameters).exitCode == 0;
}

bool QVAuthorization::authRemoveFile(const QString& path) {
    if (paths_.isPathSystemDirectory(path, true)) {
        SystemLog::write(
            QStringLiteral("Unable to delete path %1 because it is a system directory.").arg(path));
        return false;
    }
    return runTool(kRemove, {QStringLiteral("-Rdf"), path});
}

QString QVAuthorization::trashTarget(const QString& path) const {
    const QString name = QFileInfo(path).fileName();
    QString folder = QVLocalPaths::trashDirectory();
    if (runsAsRoot() && !userDirectory_.isEmpty())
        folder = userDirectory_ + QStringLiteral("/.local/share/Trash/files");
    QString target = folder + u'/' + name;
    if (!QFileInfo::exists(target))
        return target;
    const QFileInfo info(target);
    const QString stamp = clock_.now().toLocalTime().toString(QStringLiteral("yyyyMMddHHmmss"));
    const QString base =
        info.suffix().isEmpty() ? target : target.chopped(info.suffix().size() + 1);
    return QStringLiteral("%1_%2.%3").arg(base, stamp, info.suffix());
}

bool QVAuthorization::authTrashFile(const QString& path, bool deleteOnRootAccount) {
    if (paths_.isPathSystemDirectory(path, true)) {
        SystemLog::write(
            QStringLiteral("Unable to trash path %1 because it is a system directory.").arg(path));
        return false;
    }
    const QString target = trashTarget(path);
    if (userDirectory_.isEmpty() && deleteOnRootAccount && runsAsRoot())
        return authRemoveFile(target);
    QDir().mkpath(QFileInfo(target).path());
    return authMoveFile(path, target);
}

bool QVAuthorization::authTrashFolderContents(const QString& folder, bool deleteOnRootAccount) {
    if (paths_.isPathSystemDirectory(folder, true)) {
        SystemLog::write(
            QStringLiteral(
                "Unable to trash folder contents of path %1 because it is a system directory.")
                .arg(folder));
        return false;
    }
    const QDir listing(folder);
    for (const QString& entry :
         listing.entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot)) {
        const QString full = listing.filePath(entry);
        const bool ok = deleteOnRootAccount && userDirectory_.isEmpty() && runsAsRoot()
                            ? runTool(kRemove, {QStringLiteral("-R"), QStringLiteral("-f"), full})
                            : authTrashFile(full);
        if (!ok)
            return false;
    }
    return true;
}

bool QVAuthorization::authMoveFolderContents(const QString& folder, const QString& destination) {
    if (paths_.isPathSystemDirectory(folder, true)) {
        SystemLog::write(
            QStringLiteral("Unable to move contents of path %1 because it is a system directory.")
                .arg(folder));
        return false;
    }
    const QDir listing(folder);
    for (const QString& entry :
         listing.entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot)) {
        if (!authMoveFile(listing.filePath(entry), destination + u'/' + entry))
            return false;
    }
    return true;
}

namespace {

// Both paths given, else the operation's log line says which is missing.
bool bothGiven(const char* operation, const QString& path, const QString& newPath) {
    if (path.isEmpty()) {
        QVLog::appendLog(u"Error in %@: old path is null", QString::fromLatin1(operation));
        return false;
    }
    if (newPath.isEmpty()) {
        QVLog::appendLog(u"Error in %@: new path is null", QString::fromLatin1(operation));
        return false;
    }
    return true;
}

}  // namespace

bool QVAuthorization::authMoveFile(const QString& path, const QString& newPath) {
    if (!bothGiven("authMoveFile", path, newPath))
        return false;
    if (paths_.isPathSystemDirectory(path, true)) {
        SystemLog::write(
            QStringLiteral("Unable to move path %1 because it is a system directory.").arg(path));
        return false;
    }
    if (!QFileInfo(path).exists() && !QFileInfo(path).isSymLink())
        return false;
    return runTool(kMove, {QStringLiteral("-f"), path, newPath});
}

bool QVAuthorization::authCopyFile(const QString& path, const QString& newPath) {
    if (!bothGiven("authCopyFile", path, newPath))
        return false;
    if (!QFileInfo(path).exists() && !QFileInfo(path).isSymLink())
        return false;
    return runTool(
        kCopy, {QStringLiteral("-f"), QStringLiteral("-p"), QStringLiteral("-R"), path, newPath});
}

bool QVAuthorization::authCreateDir(const QString& path) {
    return runTool(kMakeFolder, {QStringLiteral("-p"), path});
}
