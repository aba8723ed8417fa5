#pragma once
// `compare`: the first folder's checksums.txt against each other's, file by file. Exit status 0
// when every copy lists the same files with the same checksums, 1 on a difference, 2 when a
// folder has no manifest or fewer than two were named. Main thread.

#include <string>
#include <vector>

#include "CliCommand.h"

class CompareCommand : public CliCommand {
  public:
    CompareCommand();
    int run(AppContext& context) override;

  protected:
    void declareOptions(CLI::App& command) override;

  private:
    std::vector<std::string> folders_;
};
