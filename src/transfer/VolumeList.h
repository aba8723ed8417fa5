#pragma once
// The volumes the window lists and the destination list a transfer chooses from.
// Safe from any thread: both lists are guarded by one mutex and handed out as copies.

#include <QString>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "DestinationEntry.h"
#include "QVVolume.h"

class VolumeList {
  public:
    using Volumes = std::vector<std::shared_ptr<QVVolume>>;

    explicit VolumeList(std::vector<DestinationEntry> destinations)
        : destinations_(std::move(destinations)) {}

    Volumes volumes() const;
    void setVolumes(const Volumes& volumes);
    void add(const std::shared_ptr<QVVolume>& volume);
    void remove(const Volumes& volumes);
    /// The first volume listed at path, taken out of the list unless `whileListed` (run on it
    /// under the lock, so no other change comes between) answers true; null when none.
    std::shared_ptr<QVVolume> takeAt(const QString& path,
                                     const std::function<bool(QVVolume&)>& whileListed);
    /// The volumes at these rows, in the rows' order; rows out of range are left out.
    Volumes atRows(const std::vector<int>& rows) const;

    std::vector<DestinationEntry> destinations() const;
    void setDestinations(const std::vector<DestinationEntry>& list);

  private:
    mutable std::mutex mutex_;
    Volumes volumes_;                             // guarded by mutex_
    std::vector<DestinationEntry> destinations_;  // guarded by mutex_
};
