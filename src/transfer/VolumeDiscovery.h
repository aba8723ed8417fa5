#pragma once
// Keeping the volume list in step with the mounted cards and the folders the user adds:
// mounts, unmounts, start-up, the automatic mode, and the Transfer, Ignore and Info commands.
// The commands and mount events come on the main thread; populateVolumes may run on a thread
// of its own, one listing at a time.

#include <QString>
#include <QStringList>
#include <memory>
#include <mutex>

struct ControllerContext;
class QVVolume;

class VolumeDiscovery {
  public:
    explicit VolumeDiscovery(ControllerContext& context) : c_(context) {}
    ~VolumeDiscovery();
    VolumeDiscovery(const VolumeDiscovery&) = delete;
    VolumeDiscovery& operator=(const VolumeDiscovery&) = delete;

    /// Start-up: lists the mounted cards, names offline destination drives, and in automatic
    /// mode queues the card named by "-cardsweepVolume PATH" if it is listed by then.
    void startUp(const QStringList& arguments);
    void populateVolumes();
    std::shared_ptr<QVVolume> addVolumeLocationToList(const QString& path, bool isFolder = false);
    void volumeDidMount(const QString& path);
    void volumeDidUnmount(const QString& path);
    /// Hears of mounts from now on (main thread): a card that could be one is listed, one
    /// that goes away leaves the list, interrupting its transfer.
    void startWatchingMounts();
    /// Starts the selected volumes, or, while one of them runs or waits for its turn, is the
    /// cancel command.
    void transfer();
    void toggleCardsweep();
    /// A later start's "-cardsweepVolume MOUNTPOINT" under the automatic mode: a card not
    /// listed yet is listed and queued as a mount would be; a listed one was already seen.
    void openVolumeFromArguments(const QStringList& arguments);
    void ignore();
    void resetIgnoredVolumes();
    void showInfo();
    void importFolders(const QStringList& folders);

  private:
    bool isDestinationDrive(const QString& path) const;

    ControllerContext& c_;
    // Two listings of the mounted cards at once would list each card twice.
    std::mutex populateMutex_;
    bool watchingMounts_ = false;  // main thread only
};
