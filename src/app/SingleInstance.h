#pragma once
// One desktop program per user: a later start hands its arguments to the running one over a
// local socket and ends; the running one hears them as handedOver. Main thread only.

#include <QLocalServer>
#include <QObject>
#include <QStringList>

class SingleInstance : public QObject {
    Q_OBJECT

  public:
    explicit SingleInstance(QString socketPath, QObject* parent = nullptr);

    /// $XDG_RUNTIME_DIR/com.quorvant.Cardsweep.socket, else one in the temporary folder named
    /// after the user.
    static QString defaultSocketPath();

    /// True when a running instance took the arguments: this start should end.
    bool handOff(const QStringList& arguments, int timeoutMs = 5000);
    /// Answers later starts from now on. A socket left by an instance that died is replaced;
    /// false when another instance answers after all (it started at the same moment).
    bool listen();

  Q_SIGNALS:
    void handedOver(const QStringList& arguments);

  private:
    void accept();

    const QString socketPath_;
    QLocalServer server_;
};
