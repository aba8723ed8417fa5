#pragma once
// The subcommands of cardsweep-cli that need no window. Each returns the process's exit
// status and prints what a person asked for on standard output.

#include "Preferences.h"

class CliCommands {
  public:
    explicit CliCommands(Preferences& preferences) : preferences_(preferences) {}

    /// Where the settings, the analytics switch and the logs live.
    int paths() const;
    /// Every setting in effect (stored over registered) as a property list.
    int settings() const;

  private:
    Preferences& preferences_;
};
