#include "PrivateBus.h"

#include <QStandardPaths>

PrivateBus::PrivateBus() {
    const QString program = QStandardPaths::findExecutable(QStringLiteral("dbus-daemon"));
    if (program.isEmpty()) {
        error_ = QStringLiteral("dbus-daemon is not installed");
        return;
    }
    daemon_.start(program, {QStringLiteral("--session"), QStringLiteral("--nofork"),
                            QStringLiteral("--print-address=1")});
    if (!daemon_.waitForStarted() || !daemon_.waitForReadyRead(10000)) {
        error_ = QStringLiteral("dbus-daemon did not start: ") + daemon_.errorString();
        return;
    }
    address_ = QString::fromUtf8(daemon_.readLine()).trimmed();
}

PrivateBus::~PrivateBus() {
    for (const QString& name : names_) {
        QDBusConnection::disconnectFromBus(name);
    }
    daemon_.kill();
    daemon_.waitForFinished();
}

QDBusConnection PrivateBus::connect(const QString& name) {
    const QString unique = address_ + QLatin1Char('#') + name;
    names_ << unique;
    return QDBusConnection::connectToBus(address_, unique);
}
