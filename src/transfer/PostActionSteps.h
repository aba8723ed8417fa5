#pragma once
// What runs after a verified transfer, step by step and in this order: marker, manifest,
// spreadsheet, then on the copy (movie metadata, refresh, reveal, player, editing application,
// archive), then eject, sound, notification, "Done" and the attention request. Built once;
// performPostActions runs on a thread of its own.

#include <memory>

#include "PostActions.h"

struct ControllerContext;
class QVVolume;

class PostActionSteps {
  public:
    explicit PostActionSteps(ControllerContext& context);

    /// Runs after a successful transfer, on a thread of its own.
    void performPostActions(const std::shared_ptr<QVVolume>& volume);

  private:
    /// Unmounts and powers off a card after its transfer; true when it went.
    bool ejectAfterTransfer(QVVolume& volume);

    ControllerContext& c_;
    PostActions steps_;
};
