#pragma once
// `settings`: every setting in effect, the stored values over the registered defaults, printed
// as one property list. Main thread.

#include "CliCommand.h"

class SettingsCommand : public CliCommand {
  public:
    SettingsCommand();
    int run(AppContext& context) override;
};
