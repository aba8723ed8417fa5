#include "SystemTool.h"

#include <QStandardPaths>
#include <exception>

#include "QVException.h"
#include "QVLog.h"
#include "QVTaskEx.h"

QString SystemTool::find(const QString& name) {
    const QString found = QStandardPaths::findExecutable(name);
    if (!found.isEmpty())
        return found;
    // Administrators' tools live in sbin, which a user's PATH may lack.
    return QStandardPaths::findExecutable(
        name, {QStringLiteral("/usr/sbin"), QStringLiteral("/usr/bin"), QStringLiteral("/sbin"),
               QStringLiteral("/bin")});
}

int SystemTool::run(const QString& name, const QStringList& arguments) {
    const QString path = find(name);
    if (path.isEmpty()) {
        QVLog::appendLog(u"%@ is not installed", name);
        return -1;
    }
    try {
        return QVTaskEx::terminationCodeFromTask(path, arguments);
    } catch (const std::exception& ex) {
        QVException::logException(ex, "SystemTool::run");
        return -1;
    }
}
