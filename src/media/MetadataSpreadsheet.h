#pragma once
// The project's comma-separated metadata sheet: one row appended per transferred volume,
// the header grown by the fields newly marked for the sheet. No quoting, on purpose: the
// file stays the plain text spreadsheet programs and earlier sheets expect.

#include <QString>
#include <QStringList>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "MetadataField.h"

/// What a row needs to know of a volume.
struct SpreadsheetVolume {
    QString name;
    /// The disk's DiskUUID, else its VolumeUUID (see VolumeSpreadsheet); written only
    /// under a "Disk UUID" column.
    QString driveIdentifier;
    QStringList destinations;
    /// Values keyed by field identifier ("QVMeta" + title without spaces).
    std::map<QString, QString> metadata;
};

class MetadataSpreadsheet {
  public:
    /// Appends the volume's row to the sheet at `path` (created when absent), first
    /// adding to the header every field with `useInSpreadsheet` 1 that it lacks. The file
    /// is replaced atomically; callers for the same file wait for each other, so rows of
    /// volumes finishing together all land. Logs the outcome; false when not written.
    static bool writeMetadataToFile(const QString& path, const SpreadsheetVolume& volume,
                                    const std::vector<MetadataField>& fields);

  private:
    /// The lock shared by every writer of the file at `path` while anyone holds it.
    static std::shared_ptr<std::mutex> lockForFile(const QString& path);
};
