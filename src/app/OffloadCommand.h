#pragma once
// `offload`: one card or folder copied to every destination and verified, with this run's
// project, digests, file choice, way of checking and steps after the transfer. A request that
// can't be carried out is refused with one line and exit status 2 before anything is written.
// Main thread.

#include <string>
#include <vector>

#include "CliCommand.h"
#include "PostActionOptions.h"

class OffloadCommand : public CliCommand {
  public:
    OffloadCommand();
    int run(AppContext& context) override;

  protected:
    void declareOptions(CLI::App& command) override;

  private:
    std::string source_;
    std::vector<std::string> destinations_;
    std::string project_;
    std::string checksum_;
    bool onlyMovies_ = false;
    bool inlineCheck_ = false;
    PostActionOptions actions_;
};
