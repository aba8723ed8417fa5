// File-mode transfer of a volume: every item of the card to every destination through the
// copy engine, the copies read back from their medium, the manifests, and the outcome.
#include "VolumeCopyStage.h"

#include <sys/sysmacros.h>

#include <QFile>

#include "AppView.h"
#include "CardFiles.h"
#include "ChecksumList.h"
#include "ChecksumManifest.h"
#include "ControllerContext.h"
#include "ControllerFlow.h"
#include "DestinationReservation.h"
#include "DigestContext.h"
#include "DiskImages.h"
#include "FileLayer.h"
#include "HistorySealer.h"
#include "MainThread.h"
#include "MetadataField.h"
#include "Notifier.h"
#include "PathText.h"
#include "Preferences.h"
#include "QVException.h"
#include "QVFileManager.h"
#include "QVLog.h"
#include "QVVolume.h"
#include "Services.h"
#include "SettingsStore.h"
#include "StreamedFile.h"
#include "TransferOptions.h"
#include "TransferProgress.h"
#include "TransferQueue.h"
#include "TransferSettings.h"
#include "TransferStages.h"
#include "VolumeCopy.h"
#include "VolumeList.h"
#include "VolumeUpdates.h"
#include "VolumeVerification.h"

namespace {

bool isSkipped(const QByteArray& name) {
    return CardFiles::isSystemLitter(name);
}

}  // namespace

std::unique_ptr<VolumeCopy> VolumeCopyStage::startVolumeCopy(
    const std::shared_ptr<QVVolume>& volume, const QStringList& destinations,
    const QString& relativeSource) {
    VolumeCopy::Options options;
    const std::shared_ptr<const TransferOptions> transfer = c_.optionsOf(*volume);
    options.type = transfer->verification;
    // Read back from the media only when checksums are to be verified.
    options.fromMedium = volume->transferChecks().fromMedium;
    options.also = transfer->alsoDigests;
    const std::weak_ptr<QVVolume> weak = volume;
    options.readBackProgress = [this, weak](std::uint64_t bytes) {
        if (const auto v = weak.lock())
            c_.flow.advanceProgress(v, double(bytes));
    };
    return std::make_unique<VolumeCopy>(c_.files, c_.flow.copierFor(volume), volume, destinations,
                                        relativeSource, std::move(options));
}

// Every item of the card to every destination, then every copy read back; true when nothing
// failed on the way.
bool VolumeCopyStage::copyVolumeItems(const QString& path, const QStringList& destinations,
                                      const std::shared_ptr<QVVolume>& volume,
                                      std::vector<int>* copyErrors) {
    QVVolume& v = *volume;
    std::unique_ptr<VolumeCopy> copy = startVolumeCopy(volume, destinations, path);
    const bool movies = v.hasQTMovies();
    if (movies && !v.qtMoviePaths())
        v.populateQuickTimeMovies(c_.files);
    QList<QByteArray> items;
    if (movies) {
        for (const QString& movie : v.qtMoviePaths().value_or(QStringList()))
            items << PathText::bytes(movie);
    } else {
        items = copy->topLevelNames();
    }

    bool whole = true;
    const QByteArray root = PathText::bytes(path);
    for (const QByteArray& item : items) {
        if (v.status() == QVVolume::Cancelled)
            break;
        if (isSkipped(item))
            continue;
        v.incrementTransferCount();
        if (!copy->copyItem(movies ? item : root + '/' + item))
            whole = false;
    }
    // What reached the destinations is read back even when the card has gone since.
    if (copy->checksFromMedium() && v.setStatusUnlessCancelled(QVVolume::Verifying)) {
        c_.publish(volume);
        copy->finish();
    }
    *copyErrors = copy->destinationErrors();
    return whole;
}

bool VolumeCopyStage::copyDisk(const QString& path, const QStringList& destinations,
                               const std::shared_ptr<QVVolume>& volume) {
    QVVolume& v = *volume;
    const QDateTime started = c_.services.clock->now();
    std::vector<std::uint64_t> freeAtStart;
    for (const QString& destination : destinations) {
        FileLayer::Space space;
        freeAtStart.push_back(
            c_.files.freeSpace(PathText::bytes(destination), &space) == 0 ? space.available : 0);
    }
    bool copyFailed = false;
    std::vector<int> copyErrors;
    try {
        copyFailed = !copyVolumeItems(path, destinations, volume, &copyErrors);
    } catch (const std::exception& exception) {
        // No thread or memory to be had: the copy can't go on, and nothing of it is proven.
        QVException::logException(exception, "copyDisk:destinations:volume:");
        return false;
    }

    // A card cancelled or pulled away stops here, its folders marked as not complete.
    if (v.status() == QVVolume::Cancelled) {
        markEndedEarly(volume, path, started);
        c_.flow.stopCancelledTransfer(volume, destinations);
        return true;
    }
    checkCardHistory(v, path);
    writeChecksumFileForVolume(v);
    const TransferReport::Content report = reportContent(v, started);
    writeReportForVolume(v, path, report);
    writeHistoryForVolume(v, TransferReport::cardRecord(report.card, report.start, report.end));
    QVLog::appendLog(u"Volume copy finished");
    setOutcome(v, copyFailed, copyErrors, freeAtStart);
    if (v.status() == QVVolume::Cancelled) {
        markEndedEarly(volume, path, started);
        c_.flow.stopCancelledTransfer(volume, destinations);
        return true;
    }

    c_.onMainThread(
        [this] {
            c_.flow.reloadVolumeList();
            c_.flow.refreshTotalRemainingSpace();
        },
        false);
    c_.flow.cancelVolume(v);
    c_.flow.finishVolume(volume);
    c_.onMainThread([this] { c_.view.setBadge(QString()); }, false);
    return true;
}

void VolumeCopyStage::markEndedEarly(const std::shared_ptr<QVVolume>& volume,
                                     const QString& cardPath, const QDateTime& started) {
    QVVolume& v = *volume;
    const QStringList destinations = v.destinations();
    if (destinations.isEmpty() || c_.inImageMode(v) || c_.flow.isBeingRemoved(volume))
        return;
    // Stopped before the first file: the folders are marked all the same.
    std::shared_ptr<TransferLedger> ledger = v.ledger();
    if (!ledger) {
        ledger = std::make_shared<TransferLedger>(std::size_t(destinations.size()));
        v.setLedger(ledger);
    }
    ledger->recordInterruption(
        v.errorString().value_or(QStringLiteral("the transfer was cancelled")));
    writeChecksumFileForVolume(v);
    writeReportForVolume(v, cardPath, reportContent(v, started));
}

QString VolumeCopyStage::fullDestinationsText(QVVolume& v, const std::vector<int>& copyErrors,
                                              const std::vector<std::uint64_t>& freeAtStart) const {
    const QStringList destinations = v.destinations();
    const std::shared_ptr<TransferLedger> ledger = v.ledger();
    QStringList full;
    QStringList complete;
    for (qsizetype i = 0; i < destinations.size(); ++i) {
        const std::size_t d = std::size_t(i);
        const int error = d < copyErrors.size() ? copyErrors[d] : 0;
        // The folder the crew ticked, not the one reserved inside it.
        QString name = destinations[i];
        for (const DestinationEntry& entry : c_.volumes.destinations()) {
            if (!entry.path.isEmpty() && destinations[i].startsWith(entry.path))
                name = entry.path;
        }
        if (error == ENOSPC || error == EDQUOT) {
            full << QStringLiteral("No space left on %1 (needs %2, %3 free)")
                        .arg(name,
                             QVFileManager::formatFileSize(double(v.totalMediaUsage(c_.files))),
                             QVFileManager::formatFileSize(
                                 double(d < freeAtStart.size() ? freeAtStart[d] : 0)));
        } else if (ledger && d < ledger->destinationCount() && ledger->isComplete(d)) {
            complete << name;
        }
    }
    if (full.isEmpty())
        return {};
    QString text = full.join(u"; ");
    if (!complete.isEmpty())
        text += QStringLiteral("; complete on ") + complete.join(u", ");
    return text;
}

void VolumeCopyStage::setOutcome(QVVolume& v, bool copyFailed, const std::vector<int>& copyErrors,
                                 const std::vector<std::uint64_t>& freeAtStart) {
    const bool growl = c_.optionsOf(v)->notify;
    const std::shared_ptr<TransferLedger> ledger = v.ledger();
    // A full disk is named as such, not as the damage its last, cut-short copy shows.
    if (const QString full = fullDestinationsText(v, copyErrors, freeAtStart); !full.isEmpty()) {
        v.setStatus(QVVolume::Failed);
        v.setErrorString(full);
        QVLog::appendLog(u"Error: %@", full);
        if (growl)
            c_.services.notifier.postGrowlNotification(QStringLiteral("Transfer Failed"), v.name(),
                                                       QString(),
                                                       QStringLiteral("Transfer Failed"));
        return;
    }
    if (!v.failedFiles().empty()) {
        const QString reason = QStringLiteral(
            "Verification failure: Source file sizes do not match destination file sizes");
        v.setStatus(QVVolume::Failed);
        v.setErrorString(reason);
        QVLog::appendLog(u"%@", reason);
        if (growl) {
            QVLog::appendLog(u"Showing Growl failure alert...");
            c_.services.notifier.postGrowlNotification(QStringLiteral("Verification Failed"),
                                                       v.name(), QString(),
                                                       QStringLiteral("Transfer Failed"));
        }
    } else if (copyFailed || (ledger && ledger->hasProblems())) {
        v.setStatus(QVVolume::Failed);
        v.setErrorString(QStringLiteral("File copy failed"));
        QVLog::appendLog(u"Error: File copy failed");
        if (growl) {
            QVLog::appendLog(u"Showing Growl failure alert...");
            c_.services.notifier.postGrowlNotification(QStringLiteral("Transfer Failed"), v.name(),
                                                       QString(),
                                                       QStringLiteral("Transfer Failed"));
        }
    } else {
        v.setStatusUnlessCancelled(QVVolume::Done);
    }
}

bool VolumeCopyStage::copyItem(const QString& item, const QStringList& destinations,
                               const QString& relativeSource,
                               const std::shared_ptr<QVVolume>& volume) {
    const std::unique_ptr<VolumeCopy> copy = startVolumeCopy(volume, destinations, relativeSource);
    const bool copied = copy->copyItem(PathText::bytes(item));
    copy->finish();
    return copied && !copy->ledger()->hasProblems();
}

void VolumeCopyStage::copyFilesWithSettings(const CopyFilesSettings& settings) {
    try {
        copyFiles(settings.files, settings.volume);
    } catch (const std::exception& exception) {
        QVException::logException(exception, "copyFilesWithSettings:");
    }
}

void VolumeCopyStage::copyFiles(const QStringList& names, const std::shared_ptr<QVVolume>& volume) {
    QVVolume& v = *volume;
    const QString root = v.path();
    const QStringList destinations = v.destinations();
    QVLog::appendLog(u"Copying files %@ from %@ to %@", names.join(u", "), root,
                     destinations.join(u", "));
    c_.onMainThread(
        [this, &v] {
            v.resetProgress();
            v.setStatus(QVVolume::Copying);
            c_.flow.reloadVolumeList();
        },
        true);
    std::uint64_t total = 0;
    for (const QString& name : names)
        total += c_.fileManager.fileSize(root + u'/' + name);
    c_.onMainThread([&v, total] { v.setMaxProgressValue(double(total)); }, true);
    const std::unique_ptr<VolumeCopy> copy = startVolumeCopy(volume, destinations, root);
    for (const QString& name : names) {
        if (v.status() == QVVolume::Cancelled)
            return;
        const QByteArray bytes = PathText::bytes(name);
        if (isSkipped(bytes))
            continue;
        copy->copyItem(PathText::bytes(root) + '/' + bytes);
    }
    copy->finish();
}

void VolumeCopyStage::writeChecksumFileForVolume(QVVolume& volume) {
    try {
        const QStringList destinations = volume.destinations();
        const std::shared_ptr<TransferLedger> ledger = volume.ledger();
        // Only destinations with digests: a disk image has none and is no folder to write into.
        const std::size_t count =
            ledger ? std::min(std::size_t(destinations.size()), ledger->destinationCount()) : 0;
        for (std::size_t i = 0; i < count; ++i) {
            const QByteArray folder = PathText::bytes(destinations[qsizetype(i)]);
            QByteArray name = ledger->manifestName(i);
            if (name.isEmpty()) {
                // A file of the card may already sit under the usual name; it is never replaced.
                name = ChecksumManifest::nameFor(c_.files, folder);
                ledger->setManifestName(i, name);
            }
            StreamedFile file(c_.files, folder + '/' + name);
            ledger->manifest(i, [&](const QByteArray& line) { file.append(line); });
            writeChecksumList(*ledger, i, folder, c_.optionsOf(volume)->digest());
            const QString error = file.commit().message();
            if (error.isEmpty())
                continue;
            QVLog::appendLog(u"Error writing checksum to disk: %@", error);
            // Written again by the post actions, a manifest that fails leaves the first one.
            const VolumeStatus status = volume.status();
            if (status == QVVolume::Copying || status == QVVolume::Verifying)
                ledger->recordFailure("/" + name, int(i),
                                      QStringLiteral("the manifest can't be written: ") + error);
        }
    } catch (const std::exception& exception) {
        QVException::logException(exception, "writeChecksumFileForVolume:");
    }
}

void VolumeCopyStage::writeChecksumList(const TransferLedger& ledger, std::size_t destination,
                                        const QByteArray& folder, DigestContext::Kind kind) {
    if (const Status written = ChecksumList::write(c_.files, ledger, destination, folder, kind);
        !written.ok())
        QVLog::appendLog(u"%@ not written to %@: %@",
                         QString::fromLatin1(ChecksumList::fileName(kind)),
                         PathText::display(folder), written.message());
}

void VolumeCopyStage::checkCardHistory(QVVolume& volume, const QString& cardPath) {
    const std::shared_ptr<TransferLedger> ledger = volume.ledger();
    if (!ledger)
        return;
    try {
        const QStringList damaged = HistorySealer::contradictions(
            c_.files, *ledger, PathText::bytes(cardPath), c_.optionsOf(volume)->digest());
        for (const QString& path : damaged) {
            QVLog::appendLog(u"Card damaged: %@ differs from the card's own ASC MHL history", path);
            ledger->recordFailure("/" + PathText::bytes(path), TransferLedger::kAllDestinations,
                                  QStringLiteral("differs from the card's own ASC MHL history: "
                                                 "the card itself is damaged"));
        }
    } catch (const std::exception& exception) {
        QVException::logException(exception, "checkCardHistory:");
    }
}

TransferReport::Content VolumeCopyStage::reportContent(QVVolume& volume, const QDateTime& start) {
    TransferReport::Content report;
    report.card.name = volume.name();
    report.card.format = volume.typeName();
    report.card.bytes = volume.totalMediaUsage(c_.files);
    if (const quint64 device = volume.sourceDevice(); device != 0)
        report.card.device = QStringLiteral("%1:%2").arg(major(device)).arg(minor(device));
    report.card.fileSystem = volume.udid(c_.services.disks);
    const std::shared_ptr<const TransferOptions> options = c_.optionsOf(volume);
    report.digest = DigestContext::name(options->digest());
    const TransferChecks checks = volume.transferChecks();
    if (!checks.checksums)
        report.checkedHow = checks.sizes ? QStringLiteral("sizes only; contents not verified")
                                         : QStringLiteral("not verified: checks were off");
    else if (!checks.fromMedium)
        report.checkedHow =
            QStringLiteral("inline, as each block was written; not read back from the media");
    else
        report.checkedHow = QStringLiteral("read back from the media after each copy was flushed");
    const QString whole = checks.checksums ? QStringLiteral("complete and verified")
                                           : QStringLiteral("complete, copied, not verified");
    report.start = start;
    report.end = c_.services.clock->now();
    const std::shared_ptr<TransferLedger> ledger = volume.ledger();
    if (!ledger)
        return report;
    const QStringList destinations = volume.destinations();
    for (qsizetype i = 0; i < destinations.size(); ++i) {
        const bool complete =
            std::size_t(i) < ledger->destinationCount() && ledger->isComplete(std::size_t(i));
        report.destinations.push_back(
            {destinations[i], complete ? whole : QStringLiteral("NOT complete: see the failures"),
             complete});
    }
    report.files = [ledger](const TransferReport::FileSink& sink) {
        ledger->forEachFile(
            [&](const QByteArray& path, std::uint64_t size, const QByteArray& digest) {
                sink({PathText::display(path.mid(1)), size, digest});
            });
    };
    const auto name = [&](int destination) {
        return destination == TransferLedger::kAllDestinations ? QStringLiteral("every destination")
                                                               : destinations.value(destination);
    };
    for (const auto& failures : {ledger->failures(), ledger->damaged()}) {
        for (const TransferLedger::Failure& failure : failures)
            report.failures << QStringLiteral("%1 on %2: %3")
                                   .arg(PathText::display(failure.path), name(failure.destination),
                                        failure.reason);
    }
    if (const auto interruption = ledger->interruption())
        report.failures << QStringLiteral("The transfer stopped short: ") + *interruption;
    // The fields by their titles, in the user's order.
    MetadataValues values = volume.metadata();
    for (const MetadataField& field : options->fields) {
        if (const auto found = values.find(field.identifier()); found != values.end()) {
            report.metadata.emplace_back(field.title, found->second);
            values.erase(found);
        }
    }
    for (const auto& [key, value] : values)
        report.metadata.emplace_back(key, value);
    return report;
}

void VolumeCopyStage::writeReportForVolume(QVVolume& volume, const QString& cardPath,
                                           const TransferReport::Content& report) {
    try {
        struct stat status {};
        // A card file of that name is copied as it is and never replaced.
        if (c_.files.linkStatus(PathText::bytes(cardPath) + '/' + CardFiles::kReport, &status) ==
            0) {
            QVLog::appendLog(u"No transfer report: the card has a file of its name");
            return;
        }
        for (const QString& folder : volume.destinations()) {
            StreamedFile file(c_.files, PathText::bytes(folder) + '/' + CardFiles::kReport);
            TransferReport::write(report, [&](const QByteArray& piece) { file.append(piece); });
            if (const Status written = file.commit(); !written.ok())
                QVLog::appendLog(u"Transfer report not written to %@: %@", folder,
                                 written.message());
        }
    } catch (const std::exception& exception) {
        QVException::logException(exception, "writeReportForVolume:");
    }
}

void VolumeCopyStage::writeHistoryForVolume(QVVolume& volume, const QString& cardRecord) {
    const std::shared_ptr<TransferLedger> ledger = volume.ledger();
    const std::shared_ptr<const TransferOptions> options = c_.optionsOf(volume);
    if (!ledger || !options->writeHistory)
        return;
    try {
        const QStringList destinations = volume.destinations();
        const std::size_t count =
            std::min(std::size_t(destinations.size()), ledger->destinationCount());
        const DigestContext::Kind kind = options->digest();
        for (std::size_t i = 0; i < count; ++i) {
            // A history records a complete copy; an incomplete one has its manifest's marks.
            if (!ledger->isComplete(i))
                continue;
            const QString& folder = destinations[qsizetype(i)];
            const HistorySealer::Result result =
                HistorySealer::seal(c_.files, *ledger, PathText::bytes(folder), kind,
                                    c_.services.clock->now(), cardRecord, options->alsoDigests);
            if (!result.written.ok())
                QVLog::appendLog(u"ASC MHL history not written to %@: %@", folder,
                                 result.written.message());
            else if (!result.leftOut.isEmpty())
                QVLog::appendLog(u"ASC MHL history of %@: %@", folder, result.leftOut);
        }
    } catch (const std::exception& exception) {
        QVException::logException(exception, "writeHistoryForVolume:");
    }
}

bool VolumeCopyStage::createDiskImage(const QString& imagePath, const QString& volumePath) {
    std::shared_ptr<QVVolume> volume;
    for (const auto& listed : c_.volumes.volumes()) {
        if (listed->path() == volumePath)
            volume = listed;
    }
    if (!volume)
        volume = std::make_shared<QVVolume>(c_.services.clock);  // a bar nobody looks at
    const VerificationType type = c_.optionsOf(*volume)->verification;
    return c_.images.create(imagePath, volumePath, type, *c_.flow.copierFor(volume));
}
