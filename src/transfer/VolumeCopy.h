#pragma once
// One file-mode transfer of a volume's items to its destination folders: the card is walked as
// bytes (every name Linux can hold is copied), files go through the copy engine, links are
// copied as links and never followed, and a failure is named in the ledger while the rest of
// the card is still copied. A card that goes away ends the walk, recorded as an interruption.
// Checks the copies from their medium unless told to check them inline. Driven from one thread,
// the volume's worker; a folder's small files are copied kSmallFileCopies at a time on threads
// of its own, and the engine's delegate is also called from them and from read-back threads.

#include <sys/stat.h>

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <atomic>
#include <memory>
#include <optional>

#include "CopyDelegate.h"
#include "CopyInfo.h"
#include "FileLayer.h"
#include "MediaReadBack.h"
#include "OperationQueue.h"
#include "QVVolume.h"
#include "TransferLedger.h"

class VolumeCopy {
  public:
    static constexpr int kSmallFileCopies = 2;

    struct Options {
        VerificationType type = VerificationType::MD5;
        bool fromMedium = true;                 // false: each write is read back at once instead
        std::vector<DigestContext::Kind> also;  // further digests of each file from its one read
        MediaReadBack::Progress readBackProgress;
    };

    /// Starts a new ledger on the volume for these destination folders (made when missing).
    VolumeCopy(FileLayer& layer, std::shared_ptr<CopyDelegate> delegate,
               std::shared_ptr<QVVolume> volume, const QStringList& destinations,
               const QString& relativeSource, Options options);
    ~VolumeCopy();
    VolumeCopy(const VolumeCopy&) = delete;
    VolumeCopy& operator=(const VolumeCopy&) = delete;

    /// The names of the entries at the top of the source, in listing order; an unreadable
    /// source is recorded (as an interruption when the card is gone).
    QList<QByteArray> topLevelNames();
    /// Copies a file, link or folder (all below it) to every destination; false when anything
    /// in it failed, was left out, or the copy stopped (cancelled, card gone).
    bool copyItem(const QByteArray& item);
    /// Waits until every copy is read back (on the main thread, still handling events).
    void finish();
    /// Gives up on copies not yet read back.
    void cancel();
    /// The card is no longer where it was when it was listed.
    bool cardGone();
    /// Copies are read back from their medium (by finish), not as they are written.
    bool checksFromMedium() const { return readBack_.has_value(); }

    const std::shared_ptr<TransferLedger>& ledger() const { return ledger_; }
    /// Per destination, errno of the failure that put it out of use (a full disk...), else 0.
    std::vector<int> destinationErrors() const;

  private:
    /// As copyItem, with what lstat said of the item.
    bool copyEntry(const QByteArray& item, const struct stat& status);
    bool copyFile(const QByteArray& item, const QByteArray& relative);
    void copySmallFile(const QByteArray& item, std::atomic<bool>& whole);
    QByteArray targetFor(std::size_t destination, const QByteArray& relative);
    bool copyFolder(const QByteArray& item, const QByteArray& relative, const struct stat& status);
    bool copyLink(const QByteArray& item, const QByteArray& relative, const struct stat& status);
    /// A source that can't be read: the card's interruption when it is gone, else the item's.
    void sourceFailed(const QByteArray& relative, const QString& reason);
    bool stopped();

    FileLayer& layer_;
    const std::shared_ptr<CopyDelegate> delegate_;  // lives while copies are read back
    const std::shared_ptr<QVVolume> volume_;
    const QByteArray root_;
    QList<QByteArray> destinations_;
    std::vector<bool> fresh_;  // per destination: empty when the transfer began
    const Options options_;
    std::shared_ptr<TransferLedger> ledger_;
    // Per destination: errno of the failure that put it out of use for the rest, else 0.
    std::vector<std::atomic<int>> deadErrors_;
    std::optional<MediaReadBack> readBack_;
    OperationQueue smallFiles_{kSmallFileCopies};
    quint64 device_ = 0;
    std::atomic<bool> cardGone_ = false;
};
