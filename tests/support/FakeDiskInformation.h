#pragma once
// Disk information from a map of mount point to dictionary. Safe from any thread.

#include <QHash>
#include <mutex>

#include "DiskInformation.h"

class FakeDiskInformation : public DiskInformation {
  public:
    /// mountPoint answers info from now on.
    void set(const QString& mountPoint, const PropertyList& info);
    void remove(const QString& mountPoint);

    std::optional<PropertyList> forMountPoint(const QString& mountPoint) const override;

  private:
    mutable std::mutex mutex_;
    QHash<QString, PropertyList> infos_;  // guarded by mutex_
};
