#include "SystemTool.h"

#include "PosixProcessRunner.h"

QString SystemTool::find(const QString& name) {
    return PosixProcessRunner::find(name);
}

int SystemTool::run(const QString& name, const QStringList& arguments) {
    return PosixProcessRunner().run(name, arguments).exitCode;
}
