#include "VolumeCopy.h"

#include <QCoreApplication>
#include <cerrno>
#include <chrono>

#include "CopyEngine.h"
#include "CopyPipeline.h"
#include "MainThread.h"
#include "PathText.h"
#include "QVFileManager.h"
#include "SystemError.h"

namespace {

constexpr std::size_t kPrefetchAhead = 64;
// Smaller files are copied in one read, several at once, and read ahead of time; larger ones
// one by one, each read ahead as it goes by the engine's own threads.
constexpr std::uint64_t kSmallFile = CopyPipeline::kBlockSize;

const QString kCardRemoved = QStringLiteral("the card was removed before every file was copied");

QString because(const char* what, int code) {
    return QLatin1String(what) + SystemError::text(code);
}

DigestContext::Kind digestKind(VerificationType type) {
    return type == VerificationType::SHA1 ? DigestContext::Kind::SHA1 : DigestContext::Kind::MD5;
}

}  // namespace

VolumeCopy::VolumeCopy(FileLayer& layer, CopyDelegate& delegate, std::shared_ptr<QVVolume> volume,
                       const QStringList& destinations, const QString& relativeSource,
                       Options options)
    : layer_(layer),
      delegate_(delegate),
      volume_(std::move(volume)),
      root_(PathText::bytes(relativeSource)),
      options_(std::move(options)),
      ledger_(std::make_shared<TransferLedger>(std::size_t(destinations.size()))) {
    for (const QString& destination : destinations) {
        destinations_ << PathText::bytes(destination);
        if (!QVFileManager::fileExistsAtPath(destination))
            QVFileManager::createDirectory(destination);
    }
    volume_->setLedger(ledger_);
    device_ = volume_->sourceDevice();
    struct stat status {};
    if (device_ == 0 && layer_.status(root_, &status) == 0)
        device_ = quint64(status.st_dev);
    if (options_.fromMedium && options_.type != VerificationType::None)
        readBack_.emplace(layer_, digestKind(options_.type), destinations_,
                          options_.readBackProgress);
}

VolumeCopy::~VolumeCopy() {
    cancel();
    smallFiles_.cancelAllOperations();
    smallFiles_.waitUntilAllOperationsAreFinished();
}

bool VolumeCopy::cardGone() {
    if (cardGone_)
        return true;
    struct stat status {};
    cardGone_ = layer_.status(root_, &status) != 0 || quint64(status.st_dev) != device_;
    return cardGone_;
}

bool VolumeCopy::stopped() {
    return cardGone_ || volume_->status() == QVVolume::Cancelled;
}

void VolumeCopy::sourceFailed(const QByteArray& relative, const QString& reason) {
    if (cardGone()) {
        ledger_->recordInterruption(kCardRemoved);
        return;
    }
    ledger_->recordFailure(relative, TransferLedger::kAllDestinations, reason);
}

QList<QByteArray> VolumeCopy::topLevelNames() {
    std::vector<FileLayer::Entry> entries;
    if (layer_.listFolder(root_, &entries) != 0) {
        sourceFailed("/", because("the card can't be read: ", errno));
        return {};
    }
    QList<QByteArray> names;
    for (const FileLayer::Entry& entry : entries)
        names << entry.name;
    return names;
}

bool VolumeCopy::copyItem(const QByteArray& item) {
    if (stopped())
        return false;
    struct stat status {};
    if (layer_.linkStatus(item, &status) != 0) {
        sourceFailed(item.mid(root_.size()), because("vanished before it was copied: ", errno));
        return false;
    }
    const bool whole = copyEntry(item, status);
    smallFiles_.waitUntilAllOperationsAreFinished();
    return whole;
}

bool VolumeCopy::copyEntry(const QByteArray& item, const struct stat& status) {
    const QByteArray relative = item.mid(root_.size());
    if (S_ISLNK(status.st_mode))
        return copyLink(item, relative, status);
    if (S_ISDIR(status.st_mode))
        return copyFolder(item, relative, status);
    if (S_ISREG(status.st_mode))
        return copyFile(item, relative);
    ledger_->recordFailure(relative, TransferLedger::kAllDestinations,
                           QStringLiteral("not a file, folder or link; not copied"));
    return false;
}

// Whatever sits where the copy goes is replaced.
void VolumeCopy::clearTarget(const QByteArray& target) {
    struct stat status {};
    if (layer_.linkStatus(target, &status) != 0)
        return;
    if (S_ISDIR(status.st_mode))
        QVFileManager::removeFile(PathText::display(target));
    else
        layer_.removeFile(target);
}

bool VolumeCopy::copyFile(const QByteArray& item, const QByteArray& relative) {
    if (stopped())
        return false;
    volume_->incrementTransferCount();
    QList<QByteArray> targets;
    for (const QByteArray& destination : destinations_) {
        targets << destination + relative;
        clearTarget(targets.back());
    }
    CopyEngine engine(layer_, &delegate_, readBack_ ? &*readBack_ : nullptr);
    const bool copied = engine.copy(item, targets, options_.type,
                                    std::any(std::weak_ptr<QVVolume>(volume_)), std::any());
    if (!copied && volume_->status() != QVVolume::Cancelled && cardGone())
        ledger_->recordInterruption(kCardRemoved);
    return copied;
}

// Everything below is tried, whatever fails on the way: off a failing card, every file that
// can still be read is worth having. Small files go to the copying threads, each asked of the
// card a little ahead of its turn so the card serves them in parallel.
bool VolumeCopy::copyFolder(const QByteArray& item, const QByteArray& relative,
                            const struct stat& status) {
    auto whole = std::make_shared<std::atomic<bool>>(true);
    for (qsizetype d = 0; d < destinations_.size(); ++d) {
        const QByteArray folder = destinations_[d] + relative;
        if (layer_.makeFolder(folder) != 0 && errno != EEXIST) {
            ledger_->recordFailure(relative, int(d), because("folder can't be created: ", errno));
            *whole = false;
        }
    }
    std::vector<FileLayer::Entry> entries;
    if (layer_.listFolder(item, &entries) != 0) {
        sourceFailed(relative, because("folder can't be read: ", errno));
        return false;
    }
    std::vector<std::optional<struct stat>> looked(entries.size());
    std::vector<int> lookErrors(entries.size(), 0);
    const auto lookAt = [&](std::size_t i) {
        struct stat entryStatus {};
        const QByteArray path = item + '/' + entries[i].name;
        if (layer_.linkStatus(path, &entryStatus) == 0)
            looked[i] = entryStatus;
        else
            lookErrors[i] = errno;
        if (looked[i] && S_ISREG(entryStatus.st_mode) &&
            std::uint64_t(entryStatus.st_size) < kSmallFile)
            layer_.prefetch(path);
    };
    std::size_t ahead = 0;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        if (stopped())
            break;
        for (; ahead < entries.size() && ahead <= i + kPrefetchAhead; ++ahead)
            lookAt(ahead);
        const QByteArray entry = item + '/' + entries[i].name;
        if (!looked[i]) {
            sourceFailed(entry.mid(root_.size()),
                         because("vanished before it was copied: ", lookErrors[i]));
            *whole = false;
            continue;
        }
        const struct stat entryStatus = *looked[i];
        if (S_ISREG(entryStatus.st_mode) && std::uint64_t(entryStatus.st_size) < kSmallFile) {
            smallFiles_.waitUntilPendingBelow(kPrefetchAhead / 2);
            smallFiles_.addOperation([this, entry, whole] {
                if (!copyFile(entry, entry.mid(root_.size())))
                    *whole = false;
            });
            continue;
        }
        if (!copyEntry(entry, entryStatus))
            *whole = false;
    }
    // The folder's times once nothing more is written into it.
    smallFiles_.waitUntilAllOperationsAreFinished();
    for (const QByteArray& destination : destinations_)
        layer_.setTimes(destination + relative, status);
    return *whole && !stopped();
}

bool VolumeCopy::copyLink(const QByteArray& item, const QByteArray& relative,
                          const struct stat& status) {
    QByteArray target;
    if (layer_.readLink(item, &target) != 0) {
        sourceFailed(relative, because("link can't be read: ", errno));
        return false;
    }
    bool whole = true;
    for (qsizetype d = 0; d < destinations_.size(); ++d) {
        const QByteArray copy = destinations_[d] + relative;
        clearTarget(copy);
        QByteArray landed;
        if (layer_.makeLink(target, copy) != 0) {
            ledger_->recordFailure(relative, int(d),
                                   because("link refused by the destination: ", errno));
            whole = false;
        } else if (layer_.readLink(copy, &landed) != 0 || landed != target) {
            ledger_->recordFailure(relative, int(d), QStringLiteral("link reads back differently"));
            whole = false;
        } else {
            layer_.setTimes(copy, status);
        }
    }
    ledger_->recordLink(relative, target);
    return whole;
}

void VolumeCopy::finish() {
    if (!readBack_)
        return;
    using namespace std::chrono_literals;
    while (!readBack_->drain(50ms)) {
        if (volume_->status() == QVVolume::Cancelled)
            return cancel();
        // A mismatch found on a read-back thread asks the main thread to show it, and waits.
        if (MainThread::isMainThread())
            QCoreApplication::processEvents();
    }
}

void VolumeCopy::cancel() {
    if (readBack_)
        readBack_->cancel();
}
