#pragma once
// The wall clock of this machine, in UTC. Stateless; safe from any thread.

#include <memory>

#include "Clock.h"

class SystemClock final : public Clock {
  public:
    QDateTime now() const override;

    /// One shared instance, for the programs' setup.
    static std::shared_ptr<const Clock> shared();
};
