#pragma once
// `gather-logs`: the logs, crash reports and settings in a zip on the desktop, for support; its
// path is printed. Main thread.

#include "CliCommand.h"

class GatherLogsCommand : public CliCommand {
  public:
    GatherLogsCommand();
    int run(AppContext& context) override;
};
