#include "QVGrowl.h"

#include <QCoreApplication>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDateTime>
#include <QFileInfo>

#include "Clock.h"
#include "PropertyList.h"
#include "QVLog.h"

namespace {

const QString kService = QStringLiteral("org.freedesktop.Notifications");
const QString kPath = QStringLiteral("/org/freedesktop/Notifications");
const QString kDefaultAction = QStringLiteral("default");
// A notification server that doesn't answer must not hold anything up for long.
constexpr int kCallTimeoutMs = 3000;
constexpr uint kClosedByExpiry = 1;

QVariantMap hints(const QString& kind) {
    return {
        {QStringLiteral("urgency"), QVariant::fromValue(static_cast<uchar>(1))},
        {QStringLiteral("category"), QStringLiteral("transfer")},
        {QStringLiteral("desktop-entry"), QStringLiteral("cardsweep")},
        {QStringLiteral("x-cardsweep-kind"), kind},
    };
}

}  // namespace

QVGrowl::QVGrowl(QString globalSettingsFile, std::shared_ptr<const Clock> clock,
                 QDBusConnection bus)
    : globalSettingsFile_(std::move(globalSettingsFile)),
      clock_(std::move(clock)),
      bus_(std::move(bus)) {
    if (!bus_.isConnected()) {
        return;
    }
    QDBusConnection connection = bus_;
    connection.connect(kService, kPath, kService, QStringLiteral("ActionInvoked"), this,
                       SLOT(onActionInvoked(uint, QString)));
    connection.connect(kService, kPath, kService, QStringLiteral("NotificationClosed"), this,
                       SLOT(onNotificationClosed(uint, uint)));
}

QVGrowl::~QVGrowl() {
    QList<QDBusPendingCall> calls;
    {
        const std::lock_guard lock(mutex_);
        calls.swap(inFlight_);
    }
    for (QDBusPendingCall& call : calls) {
        call.waitForFinished();  // bounded by the call's own time-out
    }
}

QString QVGrowl::applicationNameForGrowl() {
    const QString name = QCoreApplication::applicationName();
    if (!name.isEmpty()) {
        return name;
    }
    return QFileInfo(QCoreApplication::applicationFilePath()).fileName();
}

bool QVGrowl::disabled() const {
    return PropertyList::readFile(globalSettingsFile_)[QStringLiteral("growlDisabled")].toBool();
}

void QVGrowl::postGrowlNotification(const QString& title, const QString& description,
                                    const QString& icon, const QString& notificationName) {
    postGrowlNotification(title, description, icon, notificationName, clock_->now().toLocalTime());
}

void QVGrowl::postGrowlNotification(const QString& title, const QString& description,
                                    const QString& icon, const QString& notificationName,
                                    const QVariant& clickContext) {
    if (disabled()) {
        return;
    }
    if (!bus_.isConnected()) {
        const std::lock_guard lock(mutex_);
        if (!warnedNoBus_) {
            warnedNoBus_ = true;
            QVLog::appendLog(u"QVGrowl: no session bus; notifications are not shown");
        }
        return;
    }
    const QString kind = notificationName.isEmpty() ? kDefaultKind : notificationName;
    QDBusMessage message =
        QDBusMessage::createMethodCall(kService, kPath, kService, QStringLiteral("Notify"));
    message.setArguments({applicationNameForGrowl(), 0U,
                          icon.isEmpty() ? QStringLiteral("cardsweep") : icon, title, description,
                          QStringList{kDefaultAction, QStringLiteral("Open")}, hints(kind), -1});
    // Sent at once from the caller's thread; the reply is followed on this object's thread.
    track(bus_.asyncCall(message, kCallTimeoutMs), clickContext);
}

void QVGrowl::track(QDBusPendingCall call, const QVariant& clickContext) {
    {
        const std::lock_guard lock(mutex_);
        inFlight_.append(call);
    }
    QMetaObject::invokeMethod(this, [this, call, clickContext] {
        auto* watcher = new QDBusPendingCallWatcher(call, this);
        connect(watcher, &QDBusPendingCallWatcher::finished, this,
                [this, clickContext](QDBusPendingCallWatcher* finished) {
                    finished->deleteLater();
                    const QDBusPendingReply<uint> reply = *finished;
                    const std::lock_guard lock(mutex_);
                    inFlight_.removeIf(
                        [](const QDBusPendingCall& pending) { return pending.isFinished(); });
                    if (reply.isError()) {
                        QVLog::appendLog(u"QVGrowl: notification not shown: %@",
                                         reply.error().message());
                        return;
                    }
                    if (!clickContext.isNull()) {
                        contexts_.insert(reply.value(), clickContext);
                    }
                });
    });
}

void QVGrowl::onActionInvoked(uint id, const QString& actionKey) {
    if (actionKey == kDefaultAction || actionKey == QStringLiteral("Open")) {
        deliver(id, kClicked);
    }
}

void QVGrowl::onNotificationClosed(uint id, uint reason) {
    if (reason == kClosedByExpiry) {
        deliver(id, kTimedOut);
        return;
    }
    const std::lock_guard lock(mutex_);
    contexts_.remove(id);
}

void QVGrowl::deliver(uint id, const QString& name) {
    QVariant context;
    {
        const std::lock_guard lock(mutex_);
        context = contexts_.take(id);
    }
    if (context.isNull()) {
        return;
    }
    Q_EMIT notice(name, {{QStringLiteral("clickContext"), context}});
}
