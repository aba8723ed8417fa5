#include "LinuxMountService.h"

#include "RemovableMedia.h"

std::vector<MountEntry> LinuxMountService::removableVolumes() const {
    return RemovableMedia::mounted();
}

bool LinuxMountService::isRemovable(const MountEntry& entry) const {
    return RemovableMedia::isRemovable(entry);
}

void LinuxMountService::startWatching(Listener listener) {
    monitor_ = std::make_unique<MountMonitor>();
    QObject::connect(monitor_.get(), &MountMonitor::volumeDidMount,
                     [listener](const MountEntry& entry) { listener(entry, true); });
    QObject::connect(monitor_.get(), &MountMonitor::volumeDidUnmount,
                     [listener](const MountEntry& entry) { listener(entry, false); });
    monitor_->start();
}

void LinuxMountService::stopWatching() {
    if (monitor_)
        monitor_->stop();
    monitor_.reset();
}
