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

/// What a volume's transfer checked and how it ended, recorded when the transfer starts and
/// when it ends: "verified" is shown, and a card offered for erase, only on its word.
struct TransferChecks {
    bool started = false;     // a transfer began since the volume was listed or queued again
    bool sizes = false;       // each copy's file sizes compared with the card's
    bool checksums = false;   // each copy's digests compared with the card's
    bool fromMedium = false;  // those digests were read back from the copy's medium
    bool ended = false;
    /// Ended with every destination holding the whole card, read back from its medium and
    /// found equal to the card.
    bool completeAndVerified = false;
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
    TransferChecks checks;

    /// Copying, verifying, formatting or unmounting.
    bool isBusy() const {
        return status >= VolumeStatus::Copying && status <= VolumeStatus::Unmounting;
    }
};
