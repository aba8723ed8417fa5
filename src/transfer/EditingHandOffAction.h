#pragma once
// Hands the movies to the editing application: the xmeml clip list is written beside the
// project and given to the application of the settings. Nothing is built when there are no
// movies. Runs on the volume's post-action thread.

#include "PostAction.h"

class ProcessRunner;
class SettingsStore;

class EditingHandOffAction : public PostAction {
  public:
    /// `timecodeTool`: the QTTimecodeTool the clip list asks for each movie's timing.
    EditingHandOffAction(const SettingsStore& settings, ProcessRunner& processes,
                         QString timecodeTool)
        : settings_(settings), processes_(processes), timecodeTool_(std::move(timecodeTool)) {}
    QString name() const override { return QStringLiteral("sendXMLToFCP:projectPath:"); }
    bool needsFirstDestination() const override { return true; }
    void perform(PostActionRun& run) override;

  private:
    const SettingsStore& settings_;
    ProcessRunner& processes_;
    const QString timecodeTool_;
};
