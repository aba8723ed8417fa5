#pragma once
// What a view may know of a volume at one moment: an immutable copy made by the workers, so a
// window never reads a record that a transfer is changing.

#include <QString>
#include <QStringList>
#include <QtGlobal>
#include <optional>

#include "MetadataField.h"

/// A volume's state, with the numbers the settings and logs have always used.
enum class VolumeStatus : qint64 {
    Unrecognised = -2,
    Failed = -1,
    Idle = 0,
    Copying = 1,
    Verifying = 2,
    Formatting = 3,
    Unmounting = 4,
    Done = 5,
    Cancelled = 6,
    Finishing = 7,
};

struct VolumeSnapshot {
    QString name;
    QString path;
    qint64 type = -1;
    QString typeName;
    VolumeStatus status = VolumeStatus::Idle;
    QString statusText;
    std::optional<QString> errorString;
    double progress = 0;
    double maxProgress = 100;
    bool indeterminate = false;
    /// "hh:mm:ss", "Calculating time", "Unknown" or empty, as the estimate has it.
    QString timeRemaining;
    QStringList destinations;
    /// The one destination the user chose for this volume; none means every ticked one.
    std::optional<QStringList> outputs;
    bool isFolder = false;
    MetadataValues metadata;
    std::size_t failedFileCount = 0;

    /// Copying, verifying, formatting or unmounting.
    bool isBusy() const {
        return status >= VolumeStatus::Copying && status <= VolumeStatus::Unmounting;
    }
};
