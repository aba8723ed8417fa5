#pragma once
// The copy engine's delegate for one volume's transfer: progress into the volume's bar,
// cancellation, digests and failures into its ledger, damaged copies into its failure list.
// Called from the copying threads and the read-back threads at once; the volume guards itself.

#include <functional>
#include <memory>

#include "CopyDelegate.h"

class QVVolume;

class VolumeCopier : public CopyDelegate {
  public:
    /// What the controller does beyond the volume: redraw the bar, react to a damaged copy.
    struct Hooks {
        std::function<void(QVVolume& volume, double bytes)> progress;
        std::function<void(const std::shared_ptr<QVVolume>& volume)> damagedCopy;
    };

    VolumeCopier(std::shared_ptr<QVVolume> volume, Hooks hooks)
        : volume_(std::move(volume)), hooks_(std::move(hooks)) {}

    void fileCopyBytesWritten(std::uint64_t bytes, const std::shared_ptr<CopyInfo>& info) override;
    bool fileCopyShouldContinue(const std::shared_ptr<CopyInfo>& info) override;
    void fileCopyVerificationFailed(const std::shared_ptr<CopyInfo>& info,
                                    const QString& file) override;
    void fileCopyFinished(const std::shared_ptr<CopyInfo>& info) override;
    void fileCopyProblem(const std::shared_ptr<CopyInfo>& info, int destination,
                         const QString& reason) override;

  private:
    QByteArray relativePathOf(const CopyInfo& info) const;

    const std::shared_ptr<QVVolume> volume_;
    const Hooks hooks_;
};
