#pragma once
// One step run after a verified transfer (the done-marker, the manifest, the archive, ...).
// Each step decides from the settings and the volume whether it applies. Runs on the volume's
// post-action thread.

#include <QString>

class PostActionRun;

class PostAction {
  public:
    virtual ~PostAction() = default;
    /// For the log when the step fails.
    virtual QString name() const = 0;
    /// The steps that work on the copy are skipped when the volume has no destination.
    virtual bool needsFirstDestination() const { return false; }
    virtual void perform(PostActionRun& run) = 0;
};
