#pragma once
// Appends the volume's row to the metadata sheet of each project it was copied into: the
// project folder is the destination-list entry plus one level, and the sheet is named after
// it. Runs on the volume's post-action thread.

#include "PostAction.h"

class DiskInformation;

class SpreadsheetAction : public PostAction {
  public:
    explicit SpreadsheetAction(const DiskInformation& disks) : disks_(disks) {}
    QString name() const override { return QStringLiteral("writeMetadataToFile:volume:"); }
    void perform(PostActionRun& run) override;

    /// The sheet for a destination under a list entry: "P/NAME Metadata.csv" where P is the
    /// entry's path plus the next component of the destination (the destination itself when it
    /// has no more components) and NAME is P's last component. The entry matches as a plain
    /// text prefix, so "/media/a" also stands for "/media/ab/..." (accepted).
    static QString spreadsheetPath(const QString& destination, const QString& entryPath);

  private:
    const DiskInformation& disks_;
};
