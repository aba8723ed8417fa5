#pragma once
// The worker that takes an admitted volume to the start of its copy: it checks the source,
// claims the card's numbers, reserves one destination per ticked one and hands over to a
// stage (the file copy, or disk images and their verification). Runs on the worker's own
// thread; what the view is told goes through the main thread.

#include <QString>
#include <QStringList>
#include <cstdint>
#include <memory>

struct ControllerContext;
struct TransferSettings;
class QVVolume;

class VolumeProcessing {
  public:
    explicit VolumeProcessing(ControllerContext& context) : c_(context) {}

    /// The worker: checks the source, reserves destinations and hands over to a stage.
    void processVolumeWithSettings(const TransferSettings& settings);
    QStringList reserveDestinations(const QStringList& destinations, const QString& projectTitle,
                                    QVVolume& volume);
    /// A path under destination no transfer has written to or claimed. A numbered path (and an
    /// image path) is held in the reserved queue from here on, until processing has made the
    /// folder or the transfer ends.
    QString reserveDestination(const QString& destination, const QString& projectTitle,
                               QVVolume& volume);
    /// What the bar counts for one copy of the volume: the whole device in disk mode.
    std::uint64_t transferSize(QVVolume& volume) const;

  private:
    void markFailed(const std::shared_ptr<QVVolume>& volume, const QString& reason);
    void postTransferFailed(const QVVolume& volume);
    bool stoppedByCancel(const std::shared_ptr<QVVolume>& volume, const QStringList& reserved);

    ControllerContext& c_;
};
