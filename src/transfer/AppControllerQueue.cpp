// Admission of volumes to transfer: destination choice, the waiting list, the end of a turn,
// and the done-marker check of a freshly listed card.
#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <utility>

#include "AppController.h"
#include "CardFiles.h"
#include "FileLayer.h"
#include "MainThread.h"
#include "MetadataNaming.h"
#include "PathText.h"
#include "Preferences.h"
#include "QVException.h"
#include "QVFileManager.h"
#include "QVLog.h"
#include "QVVolume.h"
#include "SettingsStore.h"
#include "WorkerThreads.h"

namespace {

const QString kMarkerName = QString::fromLatin1(CardFiles::kMarker);

std::optional<timespec> modificationTime(FileLayer& files, const QByteArray& path) {
    struct stat status {};
    if (files.linkStatus(path, &status) != 0)
        return std::nullopt;
    return status.st_mtim;
}

bool isLater(const timespec& a, const timespec& b) {
    return a.tv_sec != b.tv_sec ? a.tv_sec > b.tv_sec : a.tv_nsec > b.tv_nsec;
}

// Depth first over visible entries (system litter comes and goes), not entering packages; true
// at the first item newer than the marker.
bool containsItemNewerThan(FileLayer& files, const QByteArray& folder, const timespec& marker) {
    std::vector<FileLayer::Entry> entries;
    files.listFolder(folder, &entries);
    for (const FileLayer::Entry& entry : entries) {
        if (entry.name.startsWith('.'))
            continue;
        const QByteArray path = folder + '/' + entry.name;
        struct stat status {};
        if (files.linkStatus(path, &status) != 0)
            continue;
        if (isLater(status.st_mtim, marker))
            return true;
        if (S_ISDIR(status.st_mode) &&
            !QVFileManager(files).isPackageAtPath(PathText::display(path)) &&
            containsItemNewerThan(files, path, marker))
            return true;
    }
    return false;
}

}  // namespace

QStringList AppController::chooseDestinations(const QVVolume& volume) {
    std::vector<DestinationEntry> list = destinationList();
    if (list.empty()) {
        list = {SettingsKey::defaultDestination()};
        setDestinationList(list);
        Preferences(settings_).setDestinationList(list);
    } else if (std::none_of(list.begin(), list.end(),
                            [](const DestinationEntry& entry) { return entry.isSelected(); })) {
        onMainThread(
            [this] {
                view_.showSheet({QStringLiteral("No destinations enabled"),
                                 QStringLiteral("OK"),
                                 {},
                                 {},
                                 QStringLiteral("You must enable at least one destination in "
                                                "order to transfer this volume.")});
            },
            false);
    }
    const auto outputs = volume.outputs();
    const bool restricted = outputs && !outputs->isEmpty();
    QStringList chosen;
    for (const DestinationEntry& entry : list) {
        if (!entry.isSelected() || entry.path.isEmpty())
            continue;
        if (restricted && entry.path != outputs->first())
            continue;
        chosen << entry.path;
    }
    return chosen;
}

void AppController::startWorker(const std::shared_ptr<QVVolume>& volume,
                                const QStringList& destinations) {
    // The settings count from here to the transfer's end.
    volume->setTransferOptions(TransferOptions::read(settings_));
    const TransferSettings settings{volume, destinations};
    // processVolumeWithSettings catches what it throws itself.
    services_.threads.start([this, settings] { processVolumeWithSettings(settings); });
}

void AppController::addVolumeToQueue(const std::shared_ptr<QVVolume>& volume) {
    try {
        const qint64 limit = std::max<qint64>(1, settings_.get(SettingsKey::concurrentThreads));
        // Giving back a busy volume's slot before choosing keeps the count honest.
        queue_.giveBackSlotOf(volume->status());
        volume->reset();
        const QStringList destinations = chooseDestinations(*volume);
        if (queue_.admit(volume, limit))
            startWorker(volume, destinations);
    } catch (const std::exception& exception) {
        QVException::logException(exception, "addVolumeToQueue:");
    }
}

void AppController::processNextQueueItem() {
    try {
        const std::shared_ptr<QVVolume> volume = queue_.takeNext();
        if (!volume)
            return;
        volume->reset();
        startWorker(volume, chooseDestinations(*volume));
    } catch (const std::exception& exception) {
        QVException::logException(exception, "processNextQueueItem");
    }
}

void AppController::incrementThreadCount() {
    queue_.increment();
}

void AppController::decrementThreadCount() {
    queue_.decrement();
}

void AppController::releaseSlot(QVVolume& volume) {
    decrementThreadCount();
    volume.decrementThreadCount();
    if (volume.threadCount() == 0)
        processNextQueueItem();
}

void AppController::checkDoneFlagForVolume(const std::shared_ptr<QVVolume>& volume) {
    try {
        if (volume->isFolder())
            return;
        const QString root = volume->path();
        const QString marker = root + u'/' + kMarkerName;
        const auto markerTime = modificationTime(fileLayer_, PathText::bytes(marker));
        if (!markerTime)
            return;
        if (containsItemNewerThan(fileLayer_, PathText::bytes(root), *markerTime)) {
            fileManager_.removeFile(marker);
            // New clips since its transfer: a new reel, numbered afresh.
            MetadataNaming::forgetCard(settings_, cardIdentity(*volume));
            volume->populateDefaultMetadata(settings_);
            publish(volume);
            return;
        }
        if (volume->status() < QVVolume::Copying)
            volume->setStatus(QVVolume::Done);
        publish(volume);
    } catch (const std::exception& exception) {
        QVException::logException(exception, "checkDoneFlagForVolume:");
    }
}
