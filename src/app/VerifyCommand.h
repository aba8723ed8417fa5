#pragma once
// `verify`: re-checks a transferred folder against its ASC MHL history when it has one (whole
// paths), else against its checksums.txt, naming every file that is missing, differs, is extra
// or was never complete; optionally seals the check as a new generation of the history. Exit
// status 0 verified, 1 failed, 2 nothing to check against. Main thread.

#include <string>

#include "CliCommand.h"

class VerifyCommand : public CliCommand {
  public:
    VerifyCommand();
    int run(AppContext& context) override;

  protected:
    void declareOptions(CLI::App& command) override;

  private:
    std::string folder_;
    bool seal_ = false;
};
