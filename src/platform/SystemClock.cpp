#include "SystemClock.h"

QDateTime SystemClock::now() const {
    return QDateTime::currentDateTimeUtc();
}

std::shared_ptr<const Clock> SystemClock::shared() {
    static const std::shared_ptr<const Clock> clock = std::make_shared<const SystemClock>();
    return clock;
}
