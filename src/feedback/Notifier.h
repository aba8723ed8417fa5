#pragma once
// Desktop notifications, as the transfer reaches them. The desktop implementation posts through
// the notification service; tests record.

#include <QString>

class Notifier {
  public:
    virtual ~Notifier() = default;
    /// Posts a notification; icon may be empty. Safe from any thread.
    virtual void postGrowlNotification(const QString& title, const QString& description,
                                       const QString& icon, const QString& notificationName) = 0;
};
