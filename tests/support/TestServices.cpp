#include "TestServices.h"

#include "DetachedThreads.h"
#include "LinuxDiskInformation.h"
#include "LinuxMountService.h"
#include "LinuxVolumeActions.h"
#include "PosixProcessRunner.h"

TestServices::TestServices(Notifier& notifier) : notifier_(notifier) {}

TestServices::~TestServices() = default;

void TestServices::useThisMachine() {
    machineMounts_ = std::make_unique<LinuxMountService>();
    machineProcesses_ = std::make_unique<PosixProcessRunner>();
    machineDisks_ = std::make_unique<LinuxDiskInformation>();
    machineVolumes_ =
        std::make_unique<LinuxVolumeActions>(*machineMounts_, *machineProcesses_, *machineDisks_);
    mounts = machineMounts_.get();
    volumes = machineVolumes_.get();
    disks = machineDisks_.get();
}

Services TestServices::bundle() {
    return Services{*files,    *mounts,     *volumes,
                    *disks,    *processes,  *paths,
                    notifier_, fakeDesktop, DetachedThreads::shared(),
                    clock};
}
