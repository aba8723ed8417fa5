#pragma once
// Desktop notifications over org.freedesktop.Notifications. Posting is safe from any thread;
// clicks and time-outs come back as notice() on the thread that owns this object (the main
// thread), carrying the context given at posting. The maker's global settings file can switch
// every notification off, and is read again on every post.

#include <QDBusConnection>
#include <QDBusPendingCall>
#include <QHash>
#include <QObject>
#include <QVariant>
#include <QVariantMap>
#include <memory>
#include <mutex>

#include "Notifier.h"

class Clock;

class QVGrowl : public QObject, public Notifier {
    Q_OBJECT

  public:
    static inline const QString kClicked = QStringLiteral("QVGrowlAlertClicked");
    static inline const QString kTimedOut = QStringLiteral("QVGrowlAlertTimedOut");
    static inline const QString kDefaultKind = QStringLiteral("QVInfoNotification");

    /// clock dates the posts that carry no click context of their own.
    QVGrowl(QString globalSettingsFile, std::shared_ptr<const Clock> clock,
            QDBusConnection bus = QDBusConnection::sessionBus());
    /// Waits briefly for posts still on their way, so a program that ends right after
    /// posting doesn't lose its last notification.
    ~QVGrowl() override;

    /// Posts with the current date and time as the click context.
    void postGrowlNotification(const QString& title, const QString& description,
                               const QString& icon, const QString& notificationName) override;
    /// Posts unless "growlDisabled" is on. icon: a theme name or a file; empty means the
    /// program's own. A null context makes clicks and time-outs post nothing.
    void postGrowlNotification(const QString& title, const QString& description,
                               const QString& icon, const QString& notificationName,
                               const QVariant& clickContext);

    /// The name the desktop shows as the notification's sender.
    static QString applicationNameForGrowl();

  Q_SIGNALS:
    /// kClicked or kTimedOut, with {"clickContext": context}.
    void notice(const QString& name, const QVariantMap& userInfo);

  private Q_SLOTS:
    void onActionInvoked(uint id, const QString& actionKey);
    void onNotificationClosed(uint id, uint reason);

  private:
    bool disabled() const;
    void track(QDBusPendingCall call, const QVariant& clickContext);
    void deliver(uint id, const QString& name);

    const QString globalSettingsFile_;
    const std::shared_ptr<const Clock> clock_;
    const QDBusConnection bus_;
    std::mutex mutex_;
    QHash<uint, QVariant> contexts_;    // guarded by mutex_; by notification id
    QList<QDBusPendingCall> inFlight_;  // guarded by mutex_
    bool warnedNoBus_ = false;          // guarded by mutex_
};
