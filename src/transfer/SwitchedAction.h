#pragma once
// A post-transfer step that is one call: run when its setting is 1 (or always, with no
// setting), after its log line. Runs on the volume's post-action thread.

#include <functional>

#include "PostAction.h"

class SettingsStore;

class SwitchedAction : public PostAction {
  public:
    using Body = std::function<void(PostActionRun& run)>;
    struct Step {
        QString name;                   // for the log when the step fails
        const char* setting = nullptr;  // null: always runs
        QString logLine;                // logged before the body; none when empty
        bool onCopy = false;            // needs the first destination
        Body body;
    };

    SwitchedAction(const SettingsStore& settings, Step step)
        : settings_(settings), step_(std::move(step)) {}
    QString name() const override { return step_.name; }
    bool needsFirstDestination() const override { return step_.onCopy; }
    void perform(PostActionRun& run) override;

  private:
    const SettingsStore& settings_;
    const Step step_;
};
