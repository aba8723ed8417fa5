#pragma once
// What the background helper does on every mount: a removable card that the recogniser names
// and the user has not ignored brings the desktop program up with it
// ("PROGRAM -cardsweepVolume MOUNTPOINT"). Lives on the thread that runs its event loop.

#include <QString>

#include "MountTable.h"

class FileLayer;
class MountService;
class ProcessRunner;
class SettingsStore;

class CardLauncher {
  public:
    CardLauncher(MountService& mounts, FileLayer& files, SettingsStore& settings,
                 ProcessRunner& processes, QString program);
    ~CardLauncher();
    CardLauncher(const CardLauncher&) = delete;
    CardLauncher& operator=(const CardLauncher&) = delete;

    /// Hears of mounts from now on.
    void start();
    /// True when the card was handed to the program.
    bool volumeDidMount(const MountEntry& entry);

  private:
    MountService& mounts_;
    FileLayer& files_;
    SettingsStore& settings_;
    ProcessRunner& processes_;
    const QString program_;
    bool watching_ = false;
};
