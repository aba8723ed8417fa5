#pragma once
// `paths`: where the settings, the analytics switch and the logs live, one labelled line each.
// Main thread.

#include "CliCommand.h"

class PathsCommand : public CliCommand {
  public:
    PathsCommand();
    int run(AppContext& context) override;
};
