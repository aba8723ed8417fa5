#pragma once
// A post-transfer step that is one call: run when its switch was on as the transfer was
// admitted (or always, with no switch), after its log line. Runs on the volume's post-action
// thread.

#include <functional>
#include <optional>

#include "PostAction.h"
#include "Setting.h"

class SwitchedAction : public PostAction {
  public:
    using Body = std::function<void(PostActionRun& run)>;
    struct Step {
        QString name;                                   // for the log when the step fails
        std::optional<Setting<IntegerSwitch>> setting;  // none: always runs
        QString logLine;                                // logged before the body; none when empty
        bool onCopy = false;                            // needs the first destination
        Body body;
    };

    explicit SwitchedAction(Step step) : step_(std::move(step)) {}
    QString name() const override { return step_.name; }
    bool needsFirstDestination() const override { return step_.onCopy; }
    void perform(PostActionRun& run) override;

  private:
    const Step step_;
};
