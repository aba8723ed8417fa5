#pragma once
// A notification server on a test bus: records every Notify and sends the click and closing
// signals a desktop would. Lives on the main thread.

#include <QDBusConnection>
#include <QObject>
#include <QStringList>
#include <QVariantMap>

class FakeNotificationServer : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

  public:
    struct Notification {
        uint id = 0;
        QString appName;
        QString icon;
        QString summary;
        QString body;
        QStringList actions;
        QVariantMap hints;
        int timeout = 0;
    };

    /// Takes the service's name on bus; false (see QDBusConnection::lastError) when it can't.
    bool registerOn(QDBusConnection bus);

    const std::vector<Notification>& notifications() const { return notifications_; }

    /// The user clicked the notification (its default action).
    void click(uint id);
    /// The notification closed; reason 1 = expired, 2 = dismissed.
    void close(uint id, uint reason);

  public Q_SLOTS:
    uint Notify(const QString& appName, uint replacesId, const QString& icon,
                const QString& summary, const QString& body, const QStringList& actions,
                const QVariantMap& hints, int timeout);
    QStringList GetCapabilities() const;

  private:
    void emitSignal(const QString& name, const QVariantList& arguments);

    QDBusConnection bus_{QString()};
    std::vector<Notification> notifications_;
};
