#pragma once
// The overall progress on the desktop's launcher icon, through the launcher-entry signal that
// docks and task bars listen for; nothing happens where none does. Main thread only.

#include <QDBusConnection>
#include <QString>

class LauncherEntry {
  public:
    explicit LauncherEntry(QString desktopFile = QStringLiteral("cardsweep.desktop"),
                           QDBusConnection bus = QDBusConnection::sessionBus());

    /// A badge such as "42%" shows as progress; empty hides it.
    void setBadge(const QString& badge);

  private:
    const QString uri_;
    const QDBusConnection bus_;
    double shown_ = -1;  // -1: hidden
};
