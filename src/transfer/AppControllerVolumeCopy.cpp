// File-mode transfer of a volume: every item of the card to every destination through the
// copy engine, the manifests, and the outcome.
#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include "AppController.h"
#include "MainThread.h"
#include "Notifier.h"
#include "Preferences.h"
#include "QVException.h"
#include "QVFileManager.h"
#include "QVLog.h"
#include "SettingsStore.h"

namespace {

bool isSkipped(const QString& name) {
    static const QStringList skipList = {QStringLiteral(".DS_Store"), QStringLiteral(".fseventsd"),
                                         QStringLiteral(".Spotlight-V100"),
                                         QStringLiteral(".TemporaryItems"),
                                         QStringLiteral(".Trashes")};
    return skipList.contains(name);
}

bool isFolder(const QString& path) {
    struct stat status {};
    return ::lstat(QFile::encodeName(path).constData(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool anythingAt(const QString& path) {
    struct stat status {};
    return ::lstat(QFile::encodeName(path).constData(), &status) == 0;
}

QStringList entriesInListingOrder(const QString& folder) {
    return QDir(folder).entryList(
        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Unsorted);
}

}  // namespace

bool AppController::copyDisk(const QString& path, const QStringList& destinations,
                             const std::shared_ptr<QVVolume>& volume) {
    QVVolume& v = *volume;
    for (const QString& destination : destinations) {
        if (!QVFileManager::fileExistsAtPath(destination))
            QVFileManager::createDirectory(destination);
    }
    const bool movies = v.hasQTMovies();
    if (movies && !v.qtMoviePaths())
        v.populateQuickTimeMovies();
    const QStringList items =
        movies ? v.qtMoviePaths().value_or(QStringList()) : entriesInListingOrder(path);

    bool copyFailed = false;
    for (const QString& item : items) {
        if (v.status() == QVVolume::Cancelled) {
            stopCancelledTransfer(volume, destinations);
            return true;
        }
        if (isSkipped(item))
            continue;
        v.incrementTransferCount();
        const QString full = movies ? item : path + u'/' + item;
        if (!copyItem(full, destinations, path, volume))
            copyFailed = true;
    }

    // A card cancelled or pulled during its last item gets no manifest either: one would look
    // like the record of a complete card.
    if (v.status() == QVVolume::Cancelled) {
        stopCancelledTransfer(volume, destinations);
        return true;
    }
    // Every destination gets its manifest, an empty one where nothing was copied.
    {
        const std::lock_guard lock(lock_);
        std::vector<QVVolume::ChecksumMap> digests = v.destChecksums();
        digests.resize(std::max(digests.size(), std::size_t(destinations.size())));
        v.setDestChecksums(digests);
    }
    writeChecksumFileForVolume(v);
    QVLog::appendLog(u"Volume copy finished");
    setOutcome(v, copyFailed);

    onMainThread(
        [this] {
            reloadVolumeList();
            refreshTotalRemainingSpace();
        },
        false);
    cancelVolume(v);
    finishVolume(volume);
    onMainThread([this] { view_.setBadge(QString()); }, false);
    return true;
}

void AppController::setOutcome(QVVolume& v, bool copyFailed) {
    const bool growl = settings_.isOn(SettingsKey::actionGrowl);
    if (!v.failedFiles().empty()) {
        const QString reason = QStringLiteral(
            "Verification failure: Source file sizes do not match destination file sizes");
        v.setStatus(QVVolume::Failed);
        v.setErrorString(reason);
        QVLog::appendLog(u"%@", reason);
        if (growl) {
            QVLog::appendLog(u"Showing Growl failure alert...");
            notifier_.postGrowlNotification(QStringLiteral("Verification Failed"), v.name(),
                                            QString(), QStringLiteral("Transfer Failed"));
        }
    } else if (copyFailed) {
        v.setStatus(QVVolume::Failed);
        v.setErrorString(QStringLiteral("File copy failed"));
        QVLog::appendLog(u"Error: File copy failed");
        if (growl) {
            QVLog::appendLog(u"Showing Growl failure alert...");
            notifier_.postGrowlNotification(QStringLiteral("Transfer Failed"), v.name(), QString(),
                                            QStringLiteral("Transfer Failed"));
        }
    } else if (v.status() != QVVolume::Cancelled) {
        v.setStatus(QVVolume::Done);
    }
}

bool AppController::copyItem(const QString& item, const QStringList& destinations,
                             const QString& relativeSource,
                             const std::shared_ptr<QVVolume>& volume) {
    const QString relative = item.mid(relativeSource.size());
    if (!isFolder(item)) {
        volume->incrementTransferCount();
        QStringList targets;
        for (const QString& root : destinations) {
            const QString target = root + relative;
            if (anythingAt(target))
                QVFileManager::removeFile(target);
            targets << target;
        }
        const VerificationType type = settings_.integer(SettingsKey::checksumFormat) == 1
                                          ? VerificationType::SHA1
                                          : VerificationType::MD5;
        return QVFileManager::copyFileWithProgress(item, targets, type, this,
                                                   std::any(std::weak_ptr<QVVolume>(volume)),
                                                   std::any(), fileLayer_);
    }
    for (const QString& root : destinations) {
        if (!QVFileManager::fileExistsAtPath(root + relative))
            QVFileManager::createDirectory(root + relative);
    }
    for (const QString& name : entriesInListingOrder(item)) {
        // A cancel ends the folder too, so "Confirm & Remove" doesn't see it written again.
        if (volume->status() == QVVolume::Cancelled ||
            !copyItem(item + u'/' + name, destinations, relativeSource, volume))
            return false;
    }
    return true;
}

void AppController::copyFilesWithSettings(const CopyFilesSettings& settings) {
    try {
        copyFiles(settings.files, settings.volume);
    } catch (const std::exception& exception) {
        QVException::logException(exception, "copyFilesWithSettings:");
    }
}

void AppController::copyFiles(const QStringList& names, const std::shared_ptr<QVVolume>& volume) {
    QVVolume& v = *volume;
    const QString root = v.path();
    const QStringList destinations = v.destinations();
    QVLog::appendLog(u"Copying files %@ from %@ to %@", names.join(u", "), root,
                     destinations.join(u", "));
    onMainThread(
        [this, &v] {
            v.resetProgress();
            v.setStatus(QVVolume::Copying);
            reloadVolumeList();
        },
        true);
    std::uint64_t total = 0;
    for (const QString& name : names)
        total += QVFileManager::fileSize(root + u'/' + name);
    onMainThread([&v, total] { v.setMaxProgressValue(double(total)); }, true);
    for (const QString& destination : destinations) {
        if (!QVFileManager::fileExistsAtPath(destination))
            QVFileManager::createDirectory(destination);
    }
    for (const QString& name : names) {
        if (v.status() == QVVolume::Cancelled)
            return;
        if (isSkipped(name))
            continue;
        copyItem(root + u'/' + name, destinations, root, volume);
    }
}

void AppController::writeChecksumFileForVolume(QVVolume& volume) {
    try {
        const QStringList destinations = volume.destinations();
        const std::vector<QVVolume::ChecksumMap> digests = volume.destChecksums();
        // Only destinations with digests: a disk image has none and is no folder to write into.
        const std::size_t count = std::min(std::size_t(destinations.size()), digests.size());
        for (std::size_t i = 0; i < count; ++i) {
            QString text;
            for (const auto& [name, digest] : digests[i])
                text += digest + u'\t' + name + u'\n';
            QSaveFile file(destinations[qsizetype(i)] + QStringLiteral("/checksums.txt"));
            const QByteArray bytes = text.toUtf8();
            if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() ||
                !file.commit()) {
                QVLog::appendLog(u"Error writing checksum to disk: %@", file.errorString());
            }
        }
    } catch (const std::exception& exception) {
        QVException::logException(exception, "writeChecksumFileForVolume:");
    }
}
