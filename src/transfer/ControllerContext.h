#pragma once
// What the parts of the controller share: the settings, the view, the services, the state
// objects that keep their own locks, and the way to the other parts (ControllerFlow), so one
// part reaches another without a pointer to the whole controller. The references are bound before
// the parts are made and outlive them (ControllerParts owns all of it). Safe from any thread as far
// as the objects referred to are; the helpers below say where they run.

#include <functional>
#include <memory>
#include <vector>

class AppView;
class DestinationReservation;
class DiskImages;
class FileLayer;
class QVFileManager;
class QVVolume;
class SettingsStore;
class TransferProgress;
class TransferQueue;
class TransferStages;
class VolumeList;
class VolumeUpdates;
class VolumeVerification;
struct Services;
struct TransferOptions;

class ControllerFlow;

struct ControllerContext {
    SettingsStore& settings;
    AppView& view;
    const Services& services;
    FileLayer& files;
    QVFileManager& fileManager;
    TransferStages& stages;

    VolumeList& volumes;
    TransferQueue& queue;
    DestinationReservation& reservation;
    TransferProgress& progress;
    DiskImages& images;
    VolumeVerification& verification;
    VolumeUpdates& updates;

    /// The other parts, as each part reaches them.
    ControllerFlow& flow;

    /// Alive while the controller is; a main-thread request made after it went is dropped.
    std::weak_ptr<int> alive;

    /// Runs fn on the main thread (see MainThread), unless the controller has gone by then.
    void onMainThread(std::function<void()> fn, bool wait) const;
    /// The volume changed: the view gets its snapshot soon, and the list is redrawn.
    void publish(const std::shared_ptr<QVVolume>& volume, bool wait = false) const;
    /// What the volume's transfer was admitted with; read from the settings now for a stage
    /// reached without admission.
    std::shared_ptr<const TransferOptions> optionsOf(QVVolume& volume) const;
    bool inImageMode(QVVolume& volume) const;
    /// The volumes of the view's selected rows, in row order (main thread).
    std::vector<std::shared_ptr<QVVolume>> selectedVolumes() const;
};
