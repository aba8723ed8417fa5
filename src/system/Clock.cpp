#include "Clock.h"

namespace {

class SystemClock final : public Clock {
  public:
    QDateTime now() const override { return QDateTime::currentDateTimeUtc(); }
};

}  // namespace

std::shared_ptr<const Clock> Clock::system() {
    static const std::shared_ptr<const Clock> clock = std::make_shared<const SystemClock>();
    return clock;
}
