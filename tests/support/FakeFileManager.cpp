#include "FakeFileManager.h"

bool FakeFileManager::registerOn(QDBusConnection bus) {
    return bus.registerObject(QStringLiteral("/org/freedesktop/FileManager1"), this,
                              QDBusConnection::ExportAllSlots) &&
           bus.registerService(QStringLiteral("org.freedesktop.FileManager1"));
}

void FakeFileManager::ShowFolders(const QStringList& uris, const QString& /*startupId*/) {
    shown_ << uris;
}
