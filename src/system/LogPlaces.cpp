#include "LogPlaces.h"

#include "QVLocalPaths.h"

QVLog::Places LogPlaces::forCurrentUser() {
    QVLog::Places places;
    places.folder = QVLocalPaths::logDirectory(true) + QStringLiteral("/Quorvant");
    // As the superuser only the current log moves to the machine's log area; the folder that
    // is created and rotated stays the user's.
    if (QVLocalPaths::isElevated())
        places.currentFolder = QVLocalPaths::logDirectory(false) + QStringLiteral("/Quorvant");
    places.globalSettingsFile =
        QVLocalPaths::prefsDirectory(true) + QStringLiteral("/com.quorvant.global.plist");
    return places;
}
