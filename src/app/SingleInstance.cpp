#include "SingleInstance.h"

#include <unistd.h>

#include <QDataStream>
#include <QDir>
#include <QLocalSocket>

namespace {

constexpr char kTaken = 'Y';

}  // namespace

SingleInstance::SingleInstance(QString socketPath, QObject* parent)
    : QObject(parent), socketPath_(std::move(socketPath)) {
    connect(&server_, &QLocalServer::newConnection, this, &SingleInstance::accept);
}

QString SingleInstance::defaultSocketPath() {
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty() && QDir(runtime).exists())
        return runtime + QStringLiteral("/com.quorvant.Cardsweep.socket");
    return QDir::tempPath() + QStringLiteral("/com.quorvant.Cardsweep-%1.socket").arg(::getuid());
}

bool SingleInstance::handOff(const QStringList& arguments, int timeoutMs) {
    QLocalSocket socket;
    socket.connectToServer(socketPath_);
    if (!socket.waitForConnected(timeoutMs))
        return false;
    QByteArray message;
    QDataStream out(&message, QIODevice::WriteOnly);
    out << arguments;
    socket.write(message);
    if (!socket.waitForBytesWritten(timeoutMs))
        return false;
    while (socket.bytesAvailable() < 1) {
        if (!socket.waitForReadyRead(timeoutMs))
            return false;
    }
    char answer = 0;
    return socket.getChar(&answer) && answer == kTaken;
}

bool SingleInstance::listen() {
    // Asked first: listening would replace the socket of an instance that is alive.
    QLocalSocket probe;
    probe.connectToServer(socketPath_);
    if (probe.waitForConnected(1000))
        return false;
    // Nobody answers on a socket that is there: its instance died and left it.
    QLocalServer::removeServer(socketPath_);
    server_.setSocketOptions(QLocalServer::UserAccessOption);
    return server_.listen(socketPath_);
}

void SingleInstance::accept() {
    while (QLocalSocket* socket = server_.nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
            QDataStream stream(socket);
            stream.startTransaction();
            QStringList arguments;
            stream >> arguments;
            if (!stream.commitTransaction())
                return;  // the rest is still on its way
            socket->putChar(kTaken);
            socket->flush();
            Q_EMIT handedOver(arguments);
        });
    }
}
