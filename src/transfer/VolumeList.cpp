#include "VolumeList.h"

#include <algorithm>

VolumeList::Volumes VolumeList::volumes() const {
    const std::lock_guard lock(mutex_);
    return volumes_;
}

void VolumeList::setVolumes(const Volumes& volumes) {
    const std::lock_guard lock(mutex_);
    volumes_ = volumes;
}

void VolumeList::add(const std::shared_ptr<QVVolume>& volume) {
    const std::lock_guard lock(mutex_);
    volumes_.push_back(volume);
}

void VolumeList::remove(const Volumes& volumes) {
    const std::lock_guard lock(mutex_);
    std::erase_if(volumes_, [&](const auto& volume) {
        return std::find(volumes.begin(), volumes.end(), volume) != volumes.end();
    });
}

std::shared_ptr<QVVolume> VolumeList::takeAt(const QString& path,
                                             const std::function<bool(QVVolume&)>& whileListed) {
    const std::lock_guard lock(mutex_);
    const auto found = std::find_if(volumes_.begin(), volumes_.end(),
                                    [&](const auto& volume) { return volume->path() == path; });
    if (found == volumes_.end())
        return nullptr;
    std::shared_ptr<QVVolume> volume = *found;
    if (!whileListed(*volume))
        volumes_.erase(found);
    return volume;
}

VolumeList::Volumes VolumeList::atRows(const std::vector<int>& rows) const {
    const std::lock_guard lock(mutex_);
    Volumes chosen;
    for (const int row : rows) {
        if (row >= 0 && std::size_t(row) < volumes_.size())
            chosen.push_back(volumes_[std::size_t(row)]);
    }
    return chosen;
}

std::vector<DestinationEntry> VolumeList::destinations() const {
    const std::lock_guard lock(mutex_);
    return destinations_;
}

void VolumeList::setDestinations(const std::vector<DestinationEntry>& list) {
    const std::lock_guard lock(mutex_);
    destinations_ = list;
}
