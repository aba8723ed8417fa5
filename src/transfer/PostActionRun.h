#pragma once
// One volume's pass through the steps after a verified transfer: the volume, its first
// destination, the movie list the steps share, and what each step did for the person
// watching. Used by the one post-action thread of that volume only.

#include <QString>
#include <QStringList>
#include <functional>
#include <memory>
#include <optional>

class QVVolume;
struct TransferOptions;

class PostActionRun {
  public:
    /// Each step that did something tells `report` in a line ("Archive: /a/b.zip").
    using Reporter = std::function<void(const QString& line)>;

    PostActionRun(std::shared_ptr<QVVolume> volume, std::shared_ptr<const TransferOptions> options,
                  Reporter report);

    QVVolume& volume() const { return *volume_; }
    const std::shared_ptr<QVVolume>& volumePointer() const { return volume_; }
    /// What the transfer was admitted with: each step decides from these.
    const TransferOptions& options() const { return *options_; }
    /// The first reserved destination folder; empty when there is none.
    const QString& firstDestination() const { return first_; }
    /// The movies the player and the editing application are handed: those listed on the
    /// card when only movies were copied, else those in the first destination. Found once per
    /// run, so both steps see the same list.
    const QStringList& movies();
    void report(const QString& line) const;

  private:
    const std::shared_ptr<QVVolume> volume_;
    const std::shared_ptr<const TransferOptions> options_;
    const QString first_;
    const Reporter report_;
    std::optional<QStringList> movies_;
};
