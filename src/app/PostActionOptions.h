#pragma once
// The command line's say over the steps after a verified transfer, for this run only: an
// archive of the copy, ejecting the card, or none of the optional steps at all. Main thread.

#include <string>

namespace CLI {
class App;
}
class SettingsStore;

class PostActionOptions {
  public:
    /// Adds --archive, --eject and --no-post-actions to the command.
    void addTo(CLI::App& command);
    /// Overrides the stored switches the options name; the others stay the user's.
    void applyTo(SettingsStore& settings) const;

  private:
    std::string archive_;  // "", "zip" or "image"
    bool eject_ = false;
    bool none_ = false;
};
