#pragma once
// The services a test's controller reaches: the test's notifier, a file layer and clock it may
// swap before making the controller, a mount table it fills in, and the process's tracked
// threads (which the tests' drain waits for). Outlives the controllers made over it.

#include <memory>

#include "Clock.h"
#include "FakeDesktop.h"
#include "FakeDiskInformation.h"
#include "FakeLocalPaths.h"
#include "FakeMountService.h"
#include "FakeProcessRunner.h"
#include "FakeVolumeActions.h"
#include "FileLayer.h"
#include "Services.h"
#include "SystemClock.h"

class LinuxDiskInformation;
class LinuxMountService;
class LinuxVolumeActions;
class Notifier;
class PosixProcessRunner;

class TestServices {
  public:
    explicit TestServices(Notifier& notifier);
    ~TestServices();

    Services bundle();
    /// The mount table, volume actions and disk information of this machine, for tests on
    /// real loop cards.
    void useThisMachine();

    FileLayer* files = &FileLayer::posix();
    FakeMountService fakeMounts;
    FakeVolumeActions fakeVolumes;
    FakeDiskInformation fakeDisks;
    FakeProcessRunner fakeProcesses;
    FakeLocalPaths fakePaths;
    FakeDesktop fakeDesktop;
    std::shared_ptr<const Clock> clock = SystemClock::shared();
    // Tests on real cards give the real ones.
    MountService* mounts = &fakeMounts;
    VolumeActions* volumes = &fakeVolumes;
    DiskInformation* disks = &fakeDisks;
    LocalPaths* paths = &fakePaths;
    ProcessRunner* processes = &fakeProcesses;

  private:
    Notifier& notifier_;
    std::unique_ptr<LinuxMountService> machineMounts_;
    std::unique_ptr<PosixProcessRunner> machineProcesses_;
    std::unique_ptr<LinuxVolumeActions> machineVolumes_;
    std::unique_ptr<LinuxDiskInformation> machineDisks_;
};
