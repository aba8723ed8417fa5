#pragma once
// Hands every transfer a destination path nobody else writes to: the folder (or image file)
// named by the metadata, else a numbered one inside it. A path is claimed on disk in one step
// that fails when anything is there, so transfers in this process or another never share one;
// numbered and image paths are also held here until their transfer lets them go.
// Safe from any thread; reservations are made one at a time.

#include <QString>
#include <QStringList>
#include <memory>
#include <mutex>
#include <vector>

#include "Clock.h"
#include "MetadataField.h"

class FileLayer;
class QVVolume;

class DestinationReservation {
  public:
    DestinationReservation(std::shared_ptr<const Clock> clock, FileLayer& files)
        : clock_(std::move(clock)), files_(files) {}

    /// A path under destination no transfer has written to or claimed. Fills in the volume's
    /// automatic metadata on the way; `fields` name the path.
    QString reserve(const QString& destination, const QString& projectTitle, QVVolume& volume,
                    const std::vector<MetadataField>& fields, bool imageMode);
    QStringList reserved() const;
    void release(const QStringList& paths);

  private:
    enum class Claim { Claimed, Taken, Failed };
    Claim claim(const QString& path, bool asFile) const;

    const std::shared_ptr<const Clock> clock_;
    FileLayer& files_;
    mutable std::mutex mutex_;
    QStringList reserved_;  // guarded by mutex_
};
