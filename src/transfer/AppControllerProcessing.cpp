// The worker that takes an admitted volume to the start of its copy, and destination
// reservation.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include "AppController.h"
#include "DetachedThreads.h"
#include "MainThread.h"
#include "MetadataField.h"
#include "MetadataNaming.h"
#include "Notifier.h"
#include "Preferences.h"
#include "QVException.h"
#include "QVFileManager.h"
#include "QVFormat.h"
#include "QVLog.h"
#include "QVVolume.h"
#include "SettingsStore.h"
#include "SystemError.h"
#include "TransferStages.h"

namespace {

bool anythingAt(const QString& path) {
    struct stat status {};
    return ::lstat(QFile::encodeName(path).constData(), &status) == 0;
}

struct SpaceFigures {
    quint64 size = 0;
    quint64 free = 0;
};

bool onListedDevice(const QVVolume& volume) {
    struct stat status {};
    return volume.sourceDevice() == 0 ||
           (::stat(QFile::encodeName(volume.path()).constData(), &status) == 0 &&
            quint64(status.st_dev) == volume.sourceDevice());
}

SpaceFigures spaceOf(const QString& path) {
    struct statvfs figures {};
    if (::statvfs(QFile::encodeName(path).constData(), &figures) != 0)
        return {};
    return {quint64(figures.f_blocks) * figures.f_frsize,
            quint64(figures.f_bavail) * figures.f_frsize};
}

}  // namespace

void AppController::markFailed(QVVolume& volume, const QString& reason) {
    volume.setStatus(QVVolume::Failed);
    volume.setErrorString(reason);
    onMainThread([this] { reloadVolumeList(); }, true);
}

void AppController::postTransferFailed(const QVVolume& volume) {
    notifier_.postGrowlNotification(QStringLiteral("Transfer Failed"), volume.name(), QString(),
                                    QStringLiteral("Transfer Failed"));
}

bool AppController::stoppedByCancel(const std::shared_ptr<QVVolume>& volume,
                                    const QStringList& reserved) {
    if (volume->status() != QVVolume::Cancelled)
        return false;
    stopCancelledTransfer(volume, reserved);
    return true;
}

void AppController::processVolumeWithSettings(const TransferSettings& settings) {
    try {
        onMainThread([this] { refreshTotalRemainingSpace(); }, false);
        const std::shared_ptr<QVVolume> volume = settings.volume;
        QVVolume& v = *volume;
        v.incrementThreadCount();
        const QString path = v.path();
        const auto failWith = [&](const QString& reason, bool notify) {
            markFailed(v, reason);
            if (notify)
                postTransferFailed(v);
            releaseSlot(v);
            endTransfer(volume);
        };

        // A card pulled since it was listed leaves an empty folder on another device.
        if (!anythingAt(path) || !onListedDevice(v)) {
            QVLog::appendLog(u"Error: Volume %@ doesn't exist", path);
            return failWith(QStringLiteral("Volume doesn't exist"), true);
        }

        // Only the source volume's own figures are compared here, and the volume's destinations
        // are always empty after admission, so this never fires; destination space is shown to
        // the user instead.
        const QStringList ownDestinations = v.destinations();
        if (!ownDestinations.isEmpty()) {
            const SpaceFigures space = spaceOf(path);
            const quint64 used = space.size - space.free;
            for (qsizetype i = 0; i < ownDestinations.size(); ++i) {
                if (spaceOf(path).free >= used)
                    continue;
                QVLog::appendLog(
                    u"Error: One or more destinations do not have enough disk space to copy "
                    u"volume %@.",
                    path);
                return failWith(QStringLiteral("Not enough space on destination(s)"), true);
            }
        }

        QVLog::appendLog(u"Processing volume %@", path);
        if (stoppedByCancel(volume, {}))
            return;
        settings_.setObject(SettingsKey::lastTransferDate, PropertyList(clock_->now()));
        const QString marker = path + QStringLiteral("/.cardsweep");
        if (anythingAt(marker))
            QVFileManager::removeFile(marker);

        onMainThread([&v] { v.resetProgress(); }, true);
        v.setStatus(QVVolume::Copying);
        onMainThread(
            [this] {
                reloadVolumeList();
                updateToolbarForTableSelection();
            },
            true);

        const QStringList reserved =
            reserveDestinations(settings.destinations, Preferences(settings_).projectTitle(), v);
        if (stoppedByCancel(volume, reserved))
            return;

        if (settings_.isOn(SettingsKey::onlyCopyQTMovies))
            v.checkForQuickTimeMovies();
        else
            v.setHasQTMovies(false);
        v.timeEstimate().start();

        // Reservation already holds each path in the reserved queue; a folder on disk speaks
        // for itself, an image path stays held until the transfer ends.
        const bool imageMode = inImageMode();
        for (const QString& destination : reserved) {
            if (!imageMode) {
                QVFileManager::createDirectory(destination, 20);
                removeFromReservedFileQueue({destination});
            }
            v.addDestination(destination);
        }
        if (stoppedByCancel(volume, reserved))
            return;

        const std::uint64_t usage = v.totalMediaUsage();
        QVLog::appendLogAndPrint(u"Volume media usage: %llu",
                                 static_cast<unsigned long long>(usage));
        // Copies read back from their medium count as much again per destination.
        const double readBack = !imageMode && !settings_.isOn(SettingsKey::inlineVerification)
                                    ? double(usage) * double(reserved.size())
                                    : 0.0;
        const double maximum = double(transferSize(v)) + readBack;
        onMainThread([&v, maximum] { v.setMaxProgressValue(maximum); }, true);

        if (imageMode) {
            QVLog::appendLog(u"Creating disk image...");
            beginImageCheck(v, reserved);
            // However this ends, no check waits for an image that will never be written.
            const std::shared_ptr<void> settle(nullptr, [&](void*) {
                imagesWritten(reserved);
                endImageCheck(v);
            });
            for (const QString& image : reserved) {
                const bool created = stages_.createDiskImage(image, path);
                imagesWritten({image});
                if (!created) {
                    QVLog::appendLog(u"Failed to create disk image.");
                    // The images not attempted are no longer held either.
                    removeFromReservedFileQueue(reserved);
                    return failWith(QStringLiteral("Unable to create disk image"), false);
                }
                // A card pulled or cancelled while being read is not verified.
                if (stoppedByCancel(volume, reserved))
                    return;
                QVLog::appendLog(u"Disk image created successfully.");
                beginImageCheck(v);
                DetachedThreads::start([this, volume, image] {
                    try {
                        stages_.verifyVolume(volume, image);
                    } catch (const std::exception& exception) {
                        QVException::logException(exception, "verifyVolume:");
                    }
                    endImageCheck(*volume);
                });
            }
            return;
        }

        QVLog::appendLog(u"Starting disk copy...");
        if (stages_.copyDisk(path, v.destinations(), volume))
            return;
        QVLog::appendLog(u"Error: Can't copy disk %@", path);
        failWith(QStringLiteral("Can't copy disk"), false);
    } catch (const std::exception& exception) {
        QVException::logException(exception, "processVolumeWithSettings:");
    }
}

QStringList AppController::reserveDestinations(const QStringList& destinations,
                                               const QString& projectTitle, QVVolume& volume) {
    QStringList reserved;
    for (const QString& destination : destinations)
        reserved << reserveDestination(destination, projectTitle, volume);
    return reserved;
}

QString AppController::reserveDestination(const QString& destination, const QString& projectTitle,
                                          QVVolume& volume) {
    const std::lock_guard lock(lock_);
    MetadataValues values = volume.metadata();
    const QString base = MetadataNaming::composeDestination(
        destination, projectTitle, values,
        MetadataField::listFrom(settings_.object(SettingsKey::metadata)), *clock_);
    volume.setMetadata(values);
    const bool imageMode = inImageMode();
    const Claim first = claim(base, imageMode);
    if (first != Claim::Taken) {
        if (imageMode)
            reservedFileQueue_.append(base);
        return base;
    }

    QVLog::appendLog(u"Path %@ already exists", base);
    const QString extension = imageMode ? QStringLiteral(".dmg") : QString();
    const auto numbered = [&](int n) {
        return base + u'/' + QVFormat::format(u"%0.4i%@", n, extension);
    };
    QString candidate = numbered(1);
    for (int n = 2;
         reservedFileQueue_.contains(candidate) || claim(candidate, imageMode) == Claim::Taken; ++n)
        candidate = numbered(n);
    QVLog::appendLog(u"Found unique path %@", candidate);
    // Held until the transfer ends, so this process never hands the number out twice.
    reservedFileQueue_.append(candidate);
    return candidate;
}

// Claims the path on disk (a folder, or an empty file for an image) in one step that fails
// when anything is there already, so two transfers, in this process or another, never share
// a destination.
AppController::Claim AppController::claim(const QString& path, bool asFile) const {
    const QByteArray bytes = QFile::encodeName(path);
    QDir().mkpath(QFileInfo(path).path());
    const int result =
        asFile ? ::open(bytes.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644)
               : ::mkdir(bytes.constData(), 0777);
    if (result >= 0) {
        if (asFile)
            ::close(result);
        return Claim::Claimed;
    }
    if (errno == EEXIST)
        return Claim::Taken;
    QVLog::appendLog(u"Unable to claim %@: %@", path, SystemError::text(errno));
    return Claim::Failed;
}
