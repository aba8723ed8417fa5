#pragma once
// The steps after a verified transfer, in the order they run. Built once with the controller;
// performing is safe from any thread (the list doesn't change after it is built).

#include <memory>
#include <vector>

#include "PostAction.h"

class PostActions {
  public:
    void append(std::unique_ptr<PostAction> action) { actions_.push_back(std::move(action)); }
    /// Runs every step in order, one after the other; the steps on the copy only with a first
    /// destination. A step that throws is logged and the rest still run, since each stands on
    /// the verified copies rather than on the step before.
    void perform(PostActionRun& run) const;
    std::size_t size() const { return actions_.size(); }

  private:
    std::vector<std::unique_ptr<PostAction>> actions_;
};
