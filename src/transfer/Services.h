#pragma once
// Everything the transfer logic reaches outside the process, handed in as one bundle: the
// mains build it from the Linux implementations, tests from fakes. Nothing here is picked by
// default; each owner outlives the controller it is given to.

#include <memory>

#include "Clock.h"

class Desktop;
class DiskInformation;
class FileLayer;
class LocalPaths;
class MountService;
class Notifier;
class ProcessRunner;
class QVAuthorization;
class VolumeActions;
class WorkerThreads;

struct Services {
    FileLayer& files;
    MountService& mounts;
    VolumeActions& volumes;
    DiskInformation& disks;
    ProcessRunner& processes;
    LocalPaths& paths;
    Notifier& notifier;
    Desktop& desktop;
    WorkerThreads& threads;
    std::shared_ptr<const Clock> clock;
    /// Administrator rights for the fall-backs that may ask for them; null: none to ask for.
    QVAuthorization* authorization = nullptr;
};
