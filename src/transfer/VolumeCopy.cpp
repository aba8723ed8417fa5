#include "VolumeCopy.h"

#include <QCoreApplication>
#include <cerrno>
#include <chrono>
#include <deque>

#include "CopyEngine.h"
#include "CopyPipeline.h"
#include "MainThread.h"
#include "PathText.h"
#include "QVException.h"
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
    return type == VerificationType::None ? DigestContext::Kind::MD5
                                          : DigestContext::Kind(int(type) - 1);
}

// A destination that fails this way fails every later file too: it is full, read-only or gone.
bool isDeadDestination(int error) {
    return error == ENOSPC || error == EDQUOT || error == EROFS || error == EIO ||
           error == ENODEV || error == ENXIO || error == ENOTCONN;
}

bool isSmallFile(const struct stat& status) {
    return S_ISREG(status.st_mode) && std::uint64_t(status.st_size) < kSmallFile;
}

}  // namespace

VolumeCopy::VolumeCopy(FileLayer& layer, std::shared_ptr<CopyDelegate> delegate,
                       std::shared_ptr<QVVolume> volume, const QStringList& destinations,
                       const QString& relativeSource, Options options)
    : layer_(layer),
      delegate_(std::move(delegate)),
      volume_(std::move(volume)),
      root_(PathText::bytes(relativeSource)),
      options_(std::move(options)),
      ledger_(std::make_shared<TransferLedger>(std::size_t(destinations.size()))),
      deadErrors_(std::size_t(destinations.size())) {
    for (const QString& destination : destinations) {
        destinations_ << PathText::bytes(destination);
        QVFileManager files(layer_);
        if (!files.fileExistsAtPath(destination))
            files.createDirectory(destination);
        // Made for this transfer (claimed empty): whatever turns up in it later is the card's
        // own, so two names meeting there (a case-insensitive disk) is a clash, not a replacement.
        std::vector<FileLayer::Entry> entries;
        fresh_.push_back(layer_.listFolder(destinations_.back(), &entries) == 0 && entries.empty());
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

// Where the item goes on destination d, cleared to take it; empty (and the failure recorded)
// when it can't go there: the destination failed earlier, or another item of the card already
// took that name there.
QByteArray VolumeCopy::targetFor(std::size_t d, const QByteArray& relative) {
    if (const int dead = deadErrors_[d]) {
        ledger_->recordFailure(relative, int(d),
                               because("not copied: the destination failed "
                                       "earlier: ",
                                       dead));
        return {};
    }
    const QByteArray target = destinations_[qsizetype(d)] + relative;
    struct stat status {};
    if (layer_.linkStatus(target, &status) != 0)
        return target;
    if (fresh_[d]) {
        ledger_->recordFailure(relative, int(d),
                               QStringLiteral("not copied: another item of the card already has "
                                              "this name there (names that differ only in case?)"));
        return {};
    }
    layer_.removeTree(target);
    return target;
}

bool VolumeCopy::copyFile(const QByteArray& item, const QByteArray& relative) {
    if (stopped())
        return false;
    volume_->incrementTransferCount();
    QList<QByteArray> targets;
    bool everyTarget = true;
    for (std::size_t d = 0; d < std::size_t(destinations_.size()); ++d) {
        targets << targetFor(d, relative);
        everyTarget = everyTarget && !targets.back().isEmpty();
    }
    CopyEngine engine(layer_, delegate_.get(), readBack_ ? &*readBack_ : nullptr);
    engine.alsoDigest(options_.also);
    const bool copied = engine.copy(item, targets, options_.type, std::any(), std::any());
    const std::vector<int>& errors = engine.destinationErrors();
    for (std::size_t d = 0; d < errors.size(); ++d) {
        if (isDeadDestination(errors[d]))
            deadErrors_[d] = errors[d];
    }
    if (!copied && volume_->status() != QVVolume::Cancelled && cardGone())
        ledger_->recordInterruption(kCardRemoved);
    return copied && everyTarget;
}

// Everything below is tried, whatever fails on the way: off a failing card, every file that
// can still be read is worth having. Small files go to the copying threads, each asked of the
// card a little ahead of its turn so the card serves them in parallel.
bool VolumeCopy::copyFolder(const QByteArray& item, const QByteArray& relative,
                            const struct stat& status) {
    auto whole = std::make_shared<std::atomic<bool>>(true);
    for (std::size_t d = 0; d < std::size_t(destinations_.size()); ++d) {
        const QByteArray folder = destinations_[qsizetype(d)] + relative;
        if (deadErrors_[d] == 0 && layer_.makeFolder(folder) != 0 && errno != EEXIST) {
            ledger_->recordFailure(relative, int(d), because("folder can't be created: ", errno));
            *whole = false;
        }
    }
    std::vector<FileLayer::Entry> entries;
    if (layer_.listFolder(item, &entries) != 0) {
        sourceFailed(relative, because("folder can't be read: ", errno));
        return false;
    }
    // What lstat said of the entries from the current one to the read-ahead's front.
    struct Looked {
        struct stat status {};
        int error = 0;
    };
    std::deque<Looked> window;
    std::size_t ahead = 0;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        if (stopped())
            break;
        for (; ahead < entries.size() && ahead <= i + kPrefetchAhead; ++ahead) {
            Looked& next = window.emplace_back();
            const QByteArray path = item + '/' + entries[ahead].name;
            if (layer_.linkStatus(path, &next.status) != 0)
                next.error = errno;
            else if (isSmallFile(next.status))
                layer_.prefetch(path);
        }
        const Looked looked = window.front();
        window.pop_front();
        const QByteArray entry = item + '/' + entries[i].name;
        if (looked.error != 0) {
            sourceFailed(entry.mid(root_.size()),
                         because("vanished before it was copied: ", looked.error));
            *whole = false;
        } else if (isSmallFile(looked.status)) {
            smallFiles_.waitUntilPendingBelow(kPrefetchAhead / 2);
            smallFiles_.addOperation([this, entry, whole] { copySmallFile(entry, *whole); });
        } else if (!copyEntry(entry, looked.status)) {
            *whole = false;
        }
    }
    // The folder's times once nothing more is written into it.
    smallFiles_.waitUntilAllOperationsAreFinished();
    for (const QByteArray& destination : destinations_)
        layer_.setTimes(destination + relative, status);
    return *whole && !stopped();
}

// On a copying thread: nothing may escape it.
void VolumeCopy::copySmallFile(const QByteArray& item, std::atomic<bool>& whole) {
    const QByteArray relative = item.mid(root_.size());
    try {
        if (!copyFile(item, relative))
            whole = false;
    } catch (const std::exception& exception) {
        QVException::logException(exception, "copyFile");
        ledger_->recordFailure(
            relative, TransferLedger::kAllDestinations,
            QStringLiteral("not copied: ") + QString::fromUtf8(exception.what()));
        whole = false;
    }
}

bool VolumeCopy::copyLink(const QByteArray& item, const QByteArray& relative,
                          const struct stat& status) {
    QByteArray target;
    if (layer_.readLink(item, &target) != 0) {
        sourceFailed(relative, because("link can't be read: ", errno));
        return false;
    }
    bool whole = true;
    for (std::size_t d = 0; d < std::size_t(destinations_.size()); ++d) {
        const QByteArray copy = targetFor(d, relative);
        QByteArray landed;
        if (copy.isEmpty()) {
            whole = false;
        } else if (layer_.makeLink(target, copy) != 0) {
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

std::vector<int> VolumeCopy::destinationErrors() const {
    std::vector<int> errors;
    for (const std::atomic<int>& error : deadErrors_)
        errors.push_back(error.load());
    return errors;
}

void VolumeCopy::cancel() {
    if (readBack_)
        readBack_->cancel();
}
