#include "UDisks2.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QVariantMap>

#include "QVLog.h"

namespace {

const QString kService = QStringLiteral("org.freedesktop.UDisks2");
const QString kPrefix = QStringLiteral("org.freedesktop.UDisks2.");
// Unmounting a card that is still being flushed can take a while.
constexpr int kCallTimeoutMs = 120 * 1000;

bool fail(QString* error, const QString& message) {
    QVLog::appendLog(u"UDisks2: %@", message);
    if (error != nullptr) {
        *error = message;
    }
    return false;
}

bool daemonAnswers() {
    const QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.isConnected() || bus.interface() == nullptr) {
        return false;
    }
    // Registered, or at least activatable on demand.
    if (bus.interface()->isServiceRegistered(kService)) {
        return true;
    }
    return bus.interface()->activatableServiceNames().value().contains(kService);
}

QDBusMessage call(const QString& object, const QString& interface, const QString& method,
                  const QVariantList& arguments) {
    QDBusMessage message =
        QDBusMessage::createMethodCall(kService, object, kPrefix + interface, method);
    message.setArguments(arguments);
    return QDBusConnection::systemBus().call(message, QDBus::Block, kCallTimeoutMs);
}

bool succeeded(const QDBusMessage& reply, const QString& what, QString* error) {
    if (reply.type() == QDBusMessage::ReplyMessage) {
        return true;
    }
    return fail(error, QStringLiteral("%1 failed: %2").arg(what, reply.errorMessage()));
}

// One property of an object; invalid when the object lacks the interface.
QVariant property(const QString& object, const QString& interface, const QString& name) {
    QDBusMessage message = QDBusMessage::createMethodCall(
        kService, object, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    message.setArguments({kPrefix + interface, name});
    const QDBusMessage reply = QDBusConnection::systemBus().call(message);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
        return {};
    }
    return reply.arguments().constFirst().value<QDBusVariant>().variant();
}

}  // namespace

QString UDisks2::blockObject(const QString& device) {
    if (device.isEmpty() || !daemonAnswers()) {
        return {};
    }
    const QVariantMap byPath{{QStringLiteral("path"), device}};
    const QDBusMessage reply =
        call(QStringLiteral("/org/freedesktop/UDisks2/Manager"), QStringLiteral("Manager"),
             QStringLiteral("ResolveDevice"), {byPath, QVariantMap()});
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
        QVLog::appendLog(u"UDisks2: cannot resolve %@: %@", device, reply.errorMessage());
        return {};
    }
    const auto objects = qdbus_cast<QList<QDBusObjectPath>>(reply.arguments().constFirst());
    return objects.isEmpty() ? QString() : objects.constFirst().path();
}

bool UDisks2::unmount(const QString& blockObject, QString* error) {
    return succeeded(
        call(blockObject, QStringLiteral("Filesystem"), QStringLiteral("Unmount"), {QVariantMap()}),
        QStringLiteral("unmounting ") + blockObject, error);
}

QString UDisks2::mount(const QString& blockObject, QString* error) {
    const QDBusMessage reply =
        call(blockObject, QStringLiteral("Filesystem"), QStringLiteral("Mount"), {QVariantMap()});
    if (!succeeded(reply, QStringLiteral("mounting ") + blockObject, error) ||
        reply.arguments().isEmpty()) {
        return {};
    }
    return reply.arguments().constFirst().toString();
}

bool UDisks2::format(const QString& blockObject, const QString& type, const QString& label,
                     QString* error) {
    QVariantMap options;
    if (!label.isEmpty()) {
        options.insert(QStringLiteral("label"), label);
    }
    return succeeded(
        call(blockObject, QStringLiteral("Block"), QStringLiteral("Format"), {type, options}),
        QStringLiteral("formatting ") + blockObject, error);
}

bool UDisks2::isLoop(const QString& blockObject) {
    return property(blockObject, QStringLiteral("Loop"), QStringLiteral("BackingFile")).isValid();
}

bool UDisks2::deleteLoop(const QString& blockObject, QString* error) {
    return succeeded(
        call(blockObject, QStringLiteral("Loop"), QStringLiteral("Delete"), {QVariantMap()}),
        QStringLiteral("detaching ") + blockObject, error);
}

bool UDisks2::powerOffDrive(const QString& blockObject, QString* error) {
    const QString drive = property(blockObject, QStringLiteral("Block"), QStringLiteral("Drive"))
                              .value<QDBusObjectPath>()
                              .path();
    if (drive.isEmpty() || drive == QStringLiteral("/")) {
        return fail(error, QStringLiteral("%1 has no drive to power off").arg(blockObject));
    }
    if (!property(drive, QStringLiteral("Drive"), QStringLiteral("CanPowerOff")).toBool()) {
        return fail(error, QStringLiteral("%1 cannot be powered off").arg(drive));
    }
    return succeeded(
        call(drive, QStringLiteral("Drive"), QStringLiteral("PowerOff"), {QVariantMap()}),
        QStringLiteral("powering off ") + drive, error);
}
