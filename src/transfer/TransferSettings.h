#pragma once
// What a worker is handed: the volume and the destination folders chosen for it.

#include <QStringList>
#include <memory>

class QVVolume;

struct TransferSettings {
    std::shared_ptr<QVVolume> volume;
    QStringList destinations;  // in destination-list order; may be empty
};
