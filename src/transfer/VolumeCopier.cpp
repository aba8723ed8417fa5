#include "VolumeCopier.h"

#include <utility>

#include "PathText.h"
#include "QVLog.h"
#include "QVVolume.h"

namespace {

QString describe(const CopyInfo& info) {
    QString text = QStringLiteral("{ operationtype = %1; source = \"%2\"; destinations = (%3)")
                       .arg(info.operationtype, info.source, info.destinations.join(u", "));
    if (info.sourceChecksum)
        text += QStringLiteral("; sourceChecksum = ") + *info.sourceChecksum;
    if (info.destChecksums)
        text += QStringLiteral("; destChecksums = (%1)").arg(info.destChecksums->join(u", "));
    return text + QStringLiteral(" }");
}

}  // namespace

// Each file adds what it copied since its last report, so the total costs the same whatever the
// number of files (rather than a sum over every file copied so far).
void VolumeCopier::fileCopyBytesWritten(std::uint64_t bytes,
                                        const std::shared_ptr<CopyInfo>& info) {
    if (info->source.isEmpty())
        return;
    const std::uint64_t counted = std::exchange(info->progressCounted, bytes);
    if (hooks_.progress)
        hooks_.progress(*volume_, double(bytes) - double(counted));
}

bool VolumeCopier::fileCopyShouldContinue(const std::shared_ptr<CopyInfo>&) {
    return volume_->status() != QVVolume::Cancelled;
}

void VolumeCopier::fileCopyVerificationFailed(const std::shared_ptr<CopyInfo>& info,
                                              const QString& file) {
    // The same record goes in once per failing destination, showing the last one.
    info->failedFile = file;
    volume_->addFailedFile(info);
    if (hooks_.damagedCopy)
        hooks_.damagedCopy(volume_);
}

QByteArray VolumeCopier::relativePathOf(const CopyInfo& info) const {
    const QByteArray root = PathText::bytes(volume_->path());
    return info.sourcePath.startsWith(root) ? info.sourcePath.mid(root.size()) : info.sourcePath;
}

void VolumeCopier::fileCopyFinished(const std::shared_ptr<CopyInfo>& info) {
    QVLog::appendLog(u"File copy finished: %@", describe(*info));
    if (const std::shared_ptr<TransferLedger> ledger = volume_->ledger()) {
        ledger->recordFile(relativePathOf(*info), info->size,
                           info->sourceChecksum.value_or(QString()),
                           info->destChecksums.value_or(QStringList()), info->alsoChecksums);
    }
}

void VolumeCopier::fileCopyProblem(const std::shared_ptr<CopyInfo>& info, int destination,
                                   const QString& reason) {
    const QString where = destination < 0
                              ? QString()
                              : QStringLiteral(" on ") + info->destinations.value(destination);
    QVLog::appendLog(u"Copy problem: %@%@: %@", info->source, where, reason);
    if (const std::shared_ptr<TransferLedger> ledger = volume_->ledger())
        ledger->recordFailure(relativePathOf(*info), destination, reason);
}
