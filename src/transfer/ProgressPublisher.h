#pragma once
// Progress of the transfers as the user sees it: the copy engine's per-volume delegate, the
// volume's bar, the window's badge and title, and what a damaged copy sets off. Called from
// the copy threads; the view is told on the main thread.

#include <memory>

struct ControllerContext;
class CopyDelegate;
class QVVolume;

class ProgressPublisher {
  public:
    explicit ProgressPublisher(ControllerContext& context) : c_(context) {}

    /// The copy engine's delegate for one volume's transfer.
    std::shared_ptr<CopyDelegate> copierFor(const std::shared_ptr<QVVolume>& volume);
    /// Adds copied or read-back bytes to the volume's bar, refreshing the view now and then.
    void advanceProgress(const std::shared_ptr<QVVolume>& volume, double bytes);
    /// Share of the work done over every listed volume (NaN with none).
    float totalProgressForAllVolumes() const;
    /// The window's title and the launcher's progress: the overall share while anything runs,
    /// the plain title and no progress otherwise.
    void showOverallProgress();

  private:
    /// A copy of the volume read back damaged: counted, shown for review, notified.
    void damagedCopy(const std::shared_ptr<QVVolume>& volume);

    ControllerContext& c_;
};
