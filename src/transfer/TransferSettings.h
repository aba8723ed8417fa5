#pragma once
// What a worker is handed: the volume and the destination folders chosen for it; and what a
// copy of named files is handed.

#include <QStringList>
#include <memory>

class QVVolume;

struct TransferSettings {
    std::shared_ptr<QVVolume> volume;
    QStringList destinations;  // in destination-list order; may be empty
};

struct CopyFilesSettings {
    QStringList files;  // names relative to the volume's path
    std::shared_ptr<QVVolume> volume;
};
