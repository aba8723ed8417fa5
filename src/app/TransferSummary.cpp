#include "TransferSummary.h"

#include "PathText.h"
#include "QVFileManager.h"
#include "QVVolume.h"
#include "TransferLedger.h"

namespace {

QString howChecked(bool fromMedium) {
    return fromMedium ? QStringLiteral("read back from the media")
                      : QStringLiteral("inline, not read back from the media");
}

QString destinationState(const TransferLedger& ledger, std::size_t index, bool fromMedium) {
    const QString size = QVFileManager::formatFileSize(double(ledger.bytesVerified(index)));
    if (ledger.isComplete(index)) {
        return QStringLiteral("  complete: %1 files, %2, verified %3")
            .arg(ledger.filesVerified(index))
            .arg(size, howChecked(fromMedium));
    }
    return QStringLiteral("  NOT complete: %1 files (%2) verified, the rest failed (below)")
        .arg(ledger.filesVerified(index))
        .arg(size);
}

}  // namespace

QStringList TransferSummary::lines(const QVVolume& volume, bool fromMedium) {
    QStringList out;
    const QStringList destinations = volume.destinations();
    const std::shared_ptr<TransferLedger> ledger = volume.ledger();
    for (qsizetype i = 0; i < destinations.size(); ++i) {
        out << QStringLiteral("Destination: ") + destinations[i];
        if (ledger && std::size_t(i) < ledger->destinationCount())
            out << destinationState(*ledger, std::size_t(i), fromMedium);
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

QString TransferSummary::verdict(QVVolume& volume, bool fromMedium, bool imagesChecked) {
    const QString size = QVFileManager::formatFileSize(double(volume.totalMediaUsage()));
    if (volume.status() == QVVolume::Done && !volume.ledger()) {
        // A disk image: read back whole from its medium, or not checked at all.
        return imagesChecked ? QStringLiteral("verified, read back from the media (%1)").arg(size)
                             : QStringLiteral(
                                   "imaged, not verified: checksum verification is "
                                   "off (%1)")
                                   .arg(size);
    }
    if (volume.status() == QVVolume::Done)
        return QStringLiteral("verified, %1 (%2)").arg(howChecked(fromMedium), size);
    return QStringLiteral("FAILED: ") + volume.errorString().value_or(QStringLiteral("unknown"));
}
