#pragma once
// Archives the first destination after a verified transfer: a read-only squashfs image or a
// zip, into that destination or into the archive folder of the settings under the project's
// name. An image's folder name is ignored as a card from then on, since the image mounts under
// it. Runs on the volume's post-action thread; the archive tools run there too.

#include "PostAction.h"

class ProcessRunner;
class QVFileManager;
class SettingsStore;

class ArchiveAction : public PostAction {
  public:
    ArchiveAction(SettingsStore& settings, QVFileManager& files, ProcessRunner& processes)
        : settings_(settings), files_(files), processes_(processes) {}
    QString name() const override { return QStringLiteral("archive"); }
    bool needsFirstDestination() const override { return true; }
    void perform(PostActionRun& run) override;

  private:
    /// The folder the archive goes into: the custom folder when it is set and can be made,
    /// else the first destination.
    QString targetFolder(const PostActionRun& run);
    QString diskImage(PostActionRun& run, const QString& target);
    QString zip(PostActionRun& run, const QString& target);

    SettingsStore& settings_;
    QVFileManager& files_;
    ProcessRunner& processes_;
};
