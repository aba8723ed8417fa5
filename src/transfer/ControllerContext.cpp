#include "ControllerContext.h"

#include "AppView.h"
#include "MainThread.h"
#include "QVVolume.h"
#include "TransferOptions.h"
#include "VolumeList.h"
#include "VolumeUpdates.h"

void ControllerContext::onMainThread(std::function<void()> fn, bool wait) const {
    MainThread::performOnMainThread(
        [alive = alive, fn = std::move(fn)] {
            if (alive.lock())
                fn();
        },
        wait);
}

void ControllerContext::publish(const std::shared_ptr<QVVolume>& volume, bool wait) const {
    updates.changed(volume);
    onMainThread([&view = view] { view.reloadVolumeList(); }, wait);
}

std::shared_ptr<const TransferOptions> ControllerContext::optionsOf(QVVolume& volume) const {
    if (auto options = volume.transferOptions())
        return options;
    auto options = TransferOptions::read(settings);
    volume.setTransferOptions(options);
    return options;
}

bool ControllerContext::inImageMode(QVVolume& volume) const {
    return optionsOf(volume)->diskImage;
}

std::vector<std::shared_ptr<QVVolume>> ControllerContext::selectedVolumes() const {
    return volumes.atRows(view.selectedRows());
}
