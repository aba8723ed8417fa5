#pragma once
// A D-Bus daemon of the test's own, so services can be faked without touching the session's.
// Stopped when it goes. Not thread-safe; one test thread owns it.

#include <QDBusConnection>
#include <QProcess>
#include <QStringList>

class PrivateBus {
  public:
    PrivateBus();
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    /// Empty when the daemon runs; otherwise why it doesn't (for a skip).
    QString error() const { return error_; }

    /// A new connection to the bus, one per role (client, each fake service).
    QDBusConnection connect(const QString& name);

  private:
    QProcess daemon_;
    QString address_;
    QString error_;
    QStringList names_;
};
