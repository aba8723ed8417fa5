#include "LocalPaths.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

#include "LocalPathRules.h"

QString LocalPaths::mediaDriveForPath(const QString& path) const {
    return LocalPathRules::driveForPath(path, mediaRoots());
}

QString LocalPaths::helperProgram(const QString& name) {
    const QString folder =
        QCoreApplication::instance()
            ? QCoreApplication::applicationDirPath()
            : QFileInfo(QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath())
                  .absolutePath();
    return QDir(folder).filePath(name);
}
