#pragma once
// The services a test's controller reaches: the test's notifier, a file layer and clock it may
// swap before making the controller, a mount table it fills in, and the process's tracked
// threads (which the tests' drain waits for). Outlives the controllers made over it.

#include <memory>

#include "Clock.h"
#include "FakeMountService.h"
#include "FileLayer.h"
#include "Services.h"

class Notifier;

class TestServices {
  public:
    explicit TestServices(Notifier& notifier) : notifier_(notifier) {}
    TestServices(Notifier& notifier, FileLayer& layer) : files(&layer), notifier_(notifier) {}

    Services bundle();

    FileLayer* files = &FileLayer::posix();
    FakeMountService fakeMounts;
    std::shared_ptr<const Clock> clock = Clock::system();
    MountService* mounts = &fakeMounts;  // tests on real cards give the real table

  private:
    Notifier& notifier_;
};
