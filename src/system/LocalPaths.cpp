#include "LocalPaths.h"

#include "LocalPathRules.h"

QString LocalPaths::mediaDriveForPath(const QString& path) const {
    return LocalPathRules::driveForPath(path, mediaRoots());
}
