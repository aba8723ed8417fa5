#pragma once
// The background jobs that bring the program up when a card is mounted (the listener, and the
// setup job), and the automatic mode they stand for. Main thread only.

#include "QVLaunchd.h"

struct ControllerContext;

class ListenerJobs {
  public:
    explicit ListenerJobs(ControllerContext& context);

    static constexpr const char* listenerLabel = "com.quorvant.Cardsweep";
    static constexpr const char* setupLabel = "com.quorvant.CardsweepSetup";
    void startListener();
    void stopListener();
    void startSetupJob();
    void stopSetupJob();
    /// The automatic mode (queue recognised cards as they are mounted): on while the listener
    /// job is installed, or for this run after keepAutomaticModeOn.
    bool cardsweepEnabled() const;
    /// Automatic mode for the life of this controller, whatever the jobs say (`watch`).
    void keepAutomaticModeOn() { automaticForThisRun_ = true; }
    QVLaunchd& launchd() { return launchd_; }

  private:
    void startHelperJob(const char* label, bool setup);

    ControllerContext& c_;
    QVLaunchd launchd_;
    bool automaticForThisRun_ = false;
};
