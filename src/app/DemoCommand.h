#pragma once
// `demo`: a sample card and two destinations in a fresh folder under the temporary folder, with
// settings of their own, offloaded as `offload` would; then each copy's files and manifest are
// shown. Main thread.

#include "CliCommand.h"

class DemoCommand : public CliCommand {
  public:
    DemoCommand();
    int run(AppContext& context) override;
};
