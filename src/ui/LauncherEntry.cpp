#include "LauncherEntry.h"

#include <QDBusMessage>
#include <QVariantMap>

LauncherEntry::LauncherEntry(QString desktopFile, QDBusConnection bus)
    : uri_(QStringLiteral("application://") + desktopFile), bus_(std::move(bus)) {}

void LauncherEntry::setBadge(const QString& badge) {
    QString number = badge;
    number.remove(QLatin1Char('%'));
    bool ok = false;
    const double percent = number.toDouble(&ok);
    const double progress = ok ? std::clamp(percent / 100.0, 0.0, 1.0) : -1;
    if (progress == shown_ || !bus_.isConnected())
        return;
    shown_ = progress;
    QDBusMessage update = QDBusMessage::createSignal(
        QStringLiteral("/com/cardsweep/LauncherEntry"),
        QStringLiteral("com.canonical.Unity.LauncherEntry"), QStringLiteral("Update"));
    const QVariantMap properties{{QStringLiteral("progress"), std::max(progress, 0.0)},
                                 {QStringLiteral("progress-visible"), progress >= 0}};
    update.setArguments({uri_, properties});
    bus_.send(update);
}
