#include "CardLauncher.h"

#include <QFileInfo>

#include "CardsweepVolumeChecker.h"
#include "MountService.h"
#include "Preferences.h"
#include "ProcessRunner.h"
#include "QVLog.h"
#include "SettingsStore.h"

CardLauncher::CardLauncher(MountService& mounts, FileLayer& files, SettingsStore& settings,
                           ProcessRunner& processes, QString program)
    : mounts_(mounts),
      files_(files),
      settings_(settings),
      processes_(processes),
      program_(std::move(program)) {}

CardLauncher::~CardLauncher() {
    if (watching_)
        mounts_.stopWatching();
}

void CardLauncher::start() {
    watching_ = true;
    mounts_.startWatching([this](const MountEntry& entry, bool mounted) {
        if (mounted)
            volumeDidMount(entry);
    });
}

bool CardLauncher::volumeDidMount(const MountEntry& entry) {
    if (!mounts_.isRemovable(entry))
        return false;
    // Read afresh: the desktop program may have changed the list since we started.
    QStringList ignored;
    settings_.transaction([&] { ignored = settings_.get(SettingsKey::ignoredVolumes); });
    if (ignored.contains(QFileInfo(entry.mountPoint).fileName()))
        return false;
    if (CardsweepVolumeChecker::verifyVolumeType(files_, entry.mountPoint) == -1)
        return false;
    QVLog::appendLog(u"Starting Cardsweep for %@", entry.mountPoint);
    return processes_.start(program_, {QStringLiteral("-cardsweepVolume"), entry.mountPoint});
}
