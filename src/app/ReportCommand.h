#pragma once
// `report`: an earlier transfer's report rebuilt from its copy's ASC MHL history, on the
// terminal or into a file. Exit status 0 written, 1 the file could not be written, 2 no
// history to rebuild it from. Main thread.

#include <string>

#include "CliCommand.h"

class ReportCommand : public CliCommand {
  public:
    ReportCommand();
    int run(AppContext& context) override;

  protected:
    void declareOptions(CLI::App& command) override;

  private:
    std::string folder_;
    std::string output_;  // empty: the terminal
};
