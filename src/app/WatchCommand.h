#pragma once
// `watch`: automatic mode without a window. Lists the cards already mounted, transfers every
// recognised card as it is mounted, prints each verdict, and ejects verified cards on request.
// Ends on SIGINT or SIGTERM, reporting any transfer it had to stop; the exit status is 0, or 1
// when any transfer failed or was stopped, or 128 + the signal. Main thread.

#include <string>
#include <vector>

#include "CliCommand.h"
#include "PostActionOptions.h"

class WatchCommand : public CliCommand {
  public:
    WatchCommand();
    int run(AppContext& context) override;

  protected:
    void declareOptions(CLI::App& command) override;

  private:
    std::vector<std::string> destinations_;  // empty: the ticked destinations of the settings
    bool image_ = false;
    PostActionOptions actions_;
};
