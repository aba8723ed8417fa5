#include "FakeNotificationServer.h"

#include <QDBusMessage>

namespace {
const QString kName = QStringLiteral("org.freedesktop.Notifications");
const QString kPath = QStringLiteral("/org/freedesktop/Notifications");
}  // namespace

bool FakeNotificationServer::registerOn(QDBusConnection bus) {
    bus_ = bus;
    return bus_.registerObject(kPath, this, QDBusConnection::ExportAllSlots) &&
           bus_.registerService(kName);
}

uint FakeNotificationServer::Notify(const QString& appName, uint /*replacesId*/,
                                    const QString& icon, const QString& summary,
                                    const QString& body, const QStringList& actions,
                                    const QVariantMap& hints, int timeout) {
    const uint id = static_cast<uint>(notifications_.size()) + 1;
    notifications_.push_back({id, appName, icon, summary, body, actions, hints, timeout});
    return id;
}

QStringList FakeNotificationServer::GetCapabilities() const {
    return {QStringLiteral("actions"), QStringLiteral("body")};
}

void FakeNotificationServer::click(uint id) {
    emitSignal(QStringLiteral("ActionInvoked"), {id, QStringLiteral("default")});
}

void FakeNotificationServer::close(uint id, uint reason) {
    emitSignal(QStringLiteral("NotificationClosed"), {id, reason});
}

void FakeNotificationServer::emitSignal(const QString& name, const QVariantList& arguments) {
    QDBusMessage message = QDBusMessage::createSignal(kPath, kName, name);
    message.setArguments(arguments);
    bus_.send(message);
}
