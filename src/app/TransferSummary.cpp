#include "TransferSummary.h"

#include "PathText.h"
#include "QVFileManager.h"
#include "QVVolume.h"
#include "TransferLedger.h"

namespace {

// How the copies were checked, as far as the transfer's checks went.
QString howChecked(const TransferChecks& checks) {
    if (checks.checksums) {
        return checks.fromMedium ? QStringLiteral("verified, read back from the media")
                                 : QStringLiteral("verified, inline, not read back from the media");
    }
    return checks.sizes ? QStringLiteral("copied, sizes checked, contents not verified")
                        : QStringLiteral("copied, not verified");
}

QString destinationState(const TransferLedger& ledger, std::size_t index,
                         const TransferChecks& checks) {
    const QString size = QVFileManager::formatFileSize(double(ledger.bytesVerified(index)));
    if (ledger.isComplete(index)) {
        return QStringLiteral("  complete: %1 files, %2, %3")
            .arg(ledger.filesVerified(index))
            .arg(size, howChecked(checks));
    }
    return QStringLiteral(
               "  NOT complete: %1 files (%2) arrived whole, the rest failed or were "
               "not copied (below)")
        .arg(ledger.filesVerified(index))
        .arg(size);
}

}  // namespace

QStringList TransferSummary::lines(const QVVolume& volume) {
    const TransferChecks checks = volume.transferChecks();
    QStringList out;
    const QStringList destinations = volume.destinations();
    const std::shared_ptr<TransferLedger> ledger = volume.ledger();
    for (qsizetype i = 0; i < destinations.size(); ++i) {
        out << QStringLiteral("Destination: ") + destinations[i];
        if (ledger && std::size_t(i) < ledger->destinationCount())
            out << destinationState(*ledger, std::size_t(i), checks);
    }
    if (!ledger)
        return out;
    std::vector<TransferLedger::Failure> failures = ledger->failures();
    for (TransferLedger::Failure& damage : ledger->damaged())
        failures.push_back(std::move(damage));
    for (std::size_t i = 0; i < failures.size() && i < std::size_t(kMostNamed); ++i) {
        const TransferLedger::Failure& failure = failures[i];
        const QString where = failure.destination < 0 ? QString()
                                                      : QStringLiteral(" on ") +
                                                            destinations.value(failure.destination);
        out << QStringLiteral("Failed: %1%2: %3")
                   .arg(PathText::display(failure.path), where, failure.reason);
    }
    if (failures.size() > std::size_t(kMostNamed))
        out << QStringLiteral("Failed: %1 more (see the log)").arg(failures.size() - kMostNamed);
    if (const auto interruption = ledger->interruption())
        out << QStringLiteral("Interrupted: ") + *interruption;
    for (const TransferLedger::Link& link : ledger->links()) {
        out << QStringLiteral("Link: %1 -> %2 (copied as a link)")
                   .arg(PathText::display(link.path), PathText::display(link.target));
    }
    return out;
}

QString TransferSummary::verdict(QVVolume& volume) {
    const TransferChecks checks = volume.transferChecks();
    const std::shared_ptr<TransferLedger> ledger = volume.ledger();
    const VolumeStatus status = volume.status();
    if (status == QVVolume::Cancelled)
        return QStringLiteral("NOT complete: ") +
               volume.errorString().value_or(QStringLiteral("the transfer was cancelled"));
    if (status != QVVolume::Done)
        return QStringLiteral("FAILED: ") +
               volume.errorString().value_or(QStringLiteral("unknown"));
    if (!ledger) {
        // A disk image: read back whole from its medium, or not checked at all.
        const QString size =
            QVFileManager::formatFileSize(double(volume.totalMediaUsage(FileLayer::posix())));
        return checks.checksums
                   ? QStringLiteral("verified, read back from the media (%1)").arg(size)
                   : QStringLiteral(
                         "imaged, not verified: checksum verification is "
                         "off (%1)")
                         .arg(size);
    }
    // What the copies hold: every destination of a finished transfer got the same.
    const std::uint64_t copied = ledger->destinationCount() > 0 ? ledger->bytesVerified(0) : 0;
    return QStringLiteral("%1 (%2)").arg(howChecked(checks),
                                         QVFileManager::formatFileSize(double(copied)));
}
