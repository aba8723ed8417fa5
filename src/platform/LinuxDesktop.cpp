#include "LinuxDesktop.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QFileInfo>
#include <QUrl>

#include "ProcessRunner.h"
#include "QVLog.h"

namespace {

const QString kFileManager = QStringLiteral("org.freedesktop.FileManager1");
// A file manager that is slow to start must not hold up a transfer's post actions for long.
constexpr int kFileManagerTimeoutMs = 5000;
const QString kSoundFolder = QStringLiteral("/usr/share/sounds/freedesktop/stereo/");

bool serviceAvailable(const QDBusConnection& bus, const QString& service) {
    if (!bus.isConnected() || bus.interface() == nullptr) {
        return false;
    }
    if (bus.interface()->isServiceRegistered(service)) {
        return true;
    }
    return bus.interface()->activatableServiceNames().value().contains(service);
}

}  // namespace

LinuxDesktop::LinuxDesktop(ProcessRunner& processes, QDBusConnection bus)
    : processes_(processes), bus_(std::move(bus)) {}

void LinuxDesktop::setAttentionHandler(std::function<void()> handler) {
    const std::lock_guard lock(mutex_);
    attention_ = std::move(handler);
}

bool LinuxDesktop::showFoldersOverBus(const QString& folder) {
    if (!serviceAvailable(bus_, kFileManager)) {
        return false;
    }
    QDBusMessage message = QDBusMessage::createMethodCall(
        kFileManager, QStringLiteral("/org/freedesktop/FileManager1"), kFileManager,
        QStringLiteral("ShowFolders"));
    message.setArguments(
        {QStringList{QUrl::fromLocalFile(folder).toString(QUrl::FullyEncoded)}, QString()});
    const QDBusMessage reply = bus_.call(message, QDBus::Block, kFileManagerTimeoutMs);
    if (reply.type() == QDBusMessage::ReplyMessage) {
        return true;
    }
    QVLog::appendLog(u"Desktop: the file manager did not show %@: %@", folder,
                     reply.errorMessage());
    return false;
}

bool LinuxDesktop::revealFolder(const QString& folder) {
    if (showFoldersOverBus(folder) || processes_.start(QStringLiteral("xdg-open"), {folder})) {
        return true;
    }
    QVLog::appendLog(u"Desktop: no file manager to show %@", folder);
    return false;
}

bool LinuxDesktop::openFiles(const QStringList& files) {
    if (files.isEmpty()) {
        return true;
    }
    if (processes_.start(QStringLiteral("gio"), QStringList{QStringLiteral("open")} + files)) {
        return true;
    }
    bool opened = false;
    for (const QString& file : files) {
        opened = processes_.start(QStringLiteral("xdg-open"), {file}) || opened;
    }
    if (!opened) {
        QVLog::appendLog(u"Desktop: no application to open %@ file(s)",
                         QString::number(files.size()));
    }
    return opened;
}

bool LinuxDesktop::playSound(const QString& name) {
    if (processes_.start(QStringLiteral("canberra-gtk-play"), {QStringLiteral("-i"), name})) {
        return true;
    }
    const QString file = kSoundFolder + name + QStringLiteral(".oga");
    if (QFileInfo::exists(file) && processes_.start(QStringLiteral("paplay"), {file})) {
        return true;
    }
    QVLog::appendLog(u"Desktop: no way to play the sound %@", name);
    return false;
}

void LinuxDesktop::requestAttention() {
    std::function<void()> handler;
    {
        const std::lock_guard lock(mutex_);
        handler = attention_;
    }
    if (!handler) {
        QVLog::appendLog(u"Desktop: no window to ask for attention");
        return;
    }
    handler();
}

void LinuxDesktop::noteFileSystemChanged(const QString& /*folder*/) {
    // File managers on Linux watch their folders themselves.
}
