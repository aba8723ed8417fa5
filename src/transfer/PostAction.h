#pragma once
// One step run after a verified transfer (the done-marker, the manifest, ...). Each step
// decides from the settings and the volume whether it applies. Runs on the volume's
// post-action thread.

#include <QString>
#include <memory>

class QVVolume;

class PostAction {
  public:
    virtual ~PostAction() = default;
    /// For the log when the step fails.
    virtual QString name() const = 0;
    virtual void perform(const std::shared_ptr<QVVolume>& volume) = 0;
};
