#pragma once
// One source that can be transferred: a mounted card or a folder the user added. The record
// travels from the list through the queue, processing, copy, verification and post actions.
//
// Thread-safety: shared between the main thread and workers; every field is read and written
// under the record's own mutex (getters return copies), the counters are atomic.

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "Clock.h"
#include "CopyInfo.h"
#include "MetadataField.h"
#include "QVTimeEstimate.h"
#include "TransferLedger.h"
#include "VolumeSnapshot.h"

class SettingsStore;
struct TransferOptions;

class DiskInformation;
class FileLayer;

class QVVolume {
  public:
    /// The row's progress indicator as plain numbers; the list view draws it.
    struct ProgressIndicator {
        double maxValue = 100.0;
        double doubleValue = 0.0;
        bool indeterminate = false;
        bool animating = false;
        bool visible = true;
    };
    using ChecksumMap = std::map<QString, QString>;
    using MetadataValues = ::MetadataValues;

    using Status = VolumeStatus;
    // The statuses under the record's name, as callers have always said them.
    static constexpr VolumeStatus Unrecognised = Status::Unrecognised, Failed = Status::Failed,
                                  Idle = Status::Idle, Copying = Status::Copying,
                                  Verifying = Status::Verifying, Formatting = Status::Formatting,
                                  Unmounting = Status::Unmounting, Done = Status::Done,
                                  Cancelled = Status::Cancelled, Finishing = Status::Finishing;

    /// A new record: status -2 for type -1, else 0; metadata filled from the field list in
    /// settings (which may advance an incrementing field's stored default, so records are made
    /// on one thread, the main one).
    static std::shared_ptr<QVVolume> volumeWithName(const QString& name, const QString& path,
                                                    int type, SettingsStore& settings,
                                                    std::shared_ptr<const Clock> clock);

    explicit QVVolume(std::shared_ptr<const Clock> clock);
    QVVolume(const QVVolume&) = delete;
    QVVolume& operator=(const QVVolume&) = delete;

    QString name() const;
    void setName(const QString& name);
    QString path() const;
    void setPath(const QString& path);
    qint64 type() const;
    void setType(qint64 type);
    ProgressIndicator spinner() const;
    ProgressIndicator progressBar() const;
    VolumeStatus status() const { return status_.load(); }
    void setStatus(VolumeStatus status) { status_.store(status); }
    /// Sets the status in one step with the check, so a cancel arriving meanwhile is never
    /// overwritten; false when the volume is cancelled.
    bool setStatusUnlessCancelled(VolumeStatus status) {
        VolumeStatus current = status_.load();
        while (current != Cancelled) {
            if (status_.compare_exchange_weak(current, status))
                return true;
        }
        return false;
    }
    std::optional<QString> errorString() const;
    void setErrorString(const std::optional<QString>& error);
    QStringList destinations() const;
    void setDestinations(const QStringList& destinations);
    std::optional<QStringList> outputs() const;
    void setOutputs(const std::optional<QStringList>& outputs);
    ChecksumMap sourceChecksumDict() const;
    void setSourceChecksumDict(const ChecksumMap& checksums);
    /// Per destination, the digests its manifest lists, by file name (from the ledger).
    std::vector<ChecksumMap> destChecksums() const;
    /// The record of the current (or last) file-mode transfer; null before the first.
    std::shared_ptr<TransferLedger> ledger() const;
    void setLedger(std::shared_ptr<TransferLedger> ledger);
    /// What the current (or last) transfer was admitted with; null before the first.
    std::shared_ptr<const TransferOptions> transferOptions() const;
    void setTransferOptions(std::shared_ptr<const TransferOptions> options);
    /// The device the source was on when it was listed (0 unknown): a card that is pulled
    /// leaves an empty folder behind on another device.
    quint64 sourceDevice() const;
    void setSourceDevice(quint64 device);
    /// The estimator itself (it guards its own fields).
    QVTimeEstimate& timeEstimate() { return timeEstimate_; }
    std::optional<QDateTime> lastProgressUpdate() const;
    void setLastProgressUpdate(const std::optional<QDateTime>& date);
    bool isFolder() const;
    void setIsFolder(bool isFolder);
    MetadataValues metadata() const;
    void setMetadata(const MetadataValues& metadata);
    bool hasQTMovies() const;
    void setHasQTMovies(bool has);
    std::optional<QStringList> qtMoviePaths() const;
    void setQtMoviePaths(const std::optional<QStringList>& paths);
    std::vector<std::shared_ptr<CopyInfo>> failedFiles() const;
    void setFailedFiles(const std::vector<std::shared_ptr<CopyInfo>>& files);
    void addFailedFile(const std::shared_ptr<CopyInfo>& file);
    /// The failed files from the index-th on (a view shows each failure once).
    std::vector<std::shared_ptr<CopyInfo>> failedFilesFrom(std::size_t index) const;

    void incrementThreadCount() { ++threadCount_; }
    void decrementThreadCount() { --threadCount_; }
    qint64 threadCount() const { return threadCount_.load(); }
    void incrementTransferCount() { ++transferCount_; }
    void decrementTransferCount() { --transferCount_; }
    qint64 transferCount() const { return transferCount_.load(); }

    TransferChecks transferChecks() const;
    /// A transfer starts with these checks; what an earlier one ended with is forgotten.
    void startTransferChecks(bool sizes, bool checksums, bool fromMedium);
    /// The transfer has ended; verified only with a read-back from the medium.
    void endTransferChecks(bool completeAndVerified);

    void addDestination(const QString& path);
    /// The card went away while it was being transferred; its row stays until the user drops
    /// it or it is mounted again. Never cleared: a new mount makes a new record.
    bool isRemoved() const { return removed_.load(); }
    void setRemoved() { removed_.store(true); }
    /// Back to "Waiting" for a new transfer: status 0, counters 0, destinations cleared.
    void reset();
    /// True for the first call since the record was made or reset: a transfer is reported as
    /// ended once, however many of its threads reach an end.
    bool markTransferEnded() { return !transferEnded_.exchange(true); }
    void resetProgress();
    void setMaxProgressValue(double value);
    void incrementProgress(double amount);
    void incrementMaxProgress(double amount);
    void makeProgressIndeterminate();
    /// Sets the bar's value (the copy delegate's running total).
    void setProgressValue(double value);

    /// Bytes that a transfer will copy, measured through files; cached once non-zero.
    std::uint64_t totalMediaUsage(FileLayer& files);
    /// The file-system UUID of the volume, empty when unknown.
    QString udid(const DiskInformation& disks) const;
    QString typeName() const;
    static QString typeName(qint64 type);
    /// The status text of the volume list.
    QString statusText() const;
    /// Everything a view shows of the volume, as it is now.
    std::shared_ptr<const VolumeSnapshot> snapshot();

    void checkForQuickTimeMovies(FileLayer& files);
    void populateQuickTimeMovies(FileLayer& files);
    /// QuickTime movies under folder (".mov" in any case, or the 'MooV' type code read through
    /// files), depth first in name order, stopping once limit are found (limit < 0: all).
    static QStringList quickTimeMoviesInFolder(FileLayer& files, const QString& folder,
                                               int limit = -1);

    /// On-disk digests by relative path, from several threads at once.
    void updateSourceChecksum(const QString& checksum, const QString& path);
    void updateDestChecksum(const QString& checksum, const QString& path,
                            const QString& mountPoint);
    /// Destination folder -> relative path -> digest, as read back by verification.
    std::map<QString, ChecksumMap> destChecksumDict() const;
    void setDestChecksumDict(const std::map<QString, ChecksumMap>& checksums);

    /// Fills the metadata from the field list as the list shows it before a transfer; the
    /// numbers shown are not spent until claimMetadata.
    void populateDefaultMetadata(const SettingsStore& settings);
    /// The transfer starts: numbers still as listed are claimed now (and spent), values the
    /// user typed are kept. Returns the values the transfer uses; later calls claim nothing.
    MetadataValues claimMetadata(SettingsStore& settings);
    /// Shows again the values a transfer of this card used; nothing is left to claim.
    void restoreMetadata(const MetadataValues& values);
    /// Another card spent a number: the numbers this one still shows as listed move on. True
    /// when something shown changed.
    bool refreshListedMetadata(const SettingsStore& settings);

  private:
    static void makeDeterminate(ProgressIndicator& bar);

    mutable std::mutex mutex_;
    std::shared_ptr<const Clock> clock_;
    QString name_;                   // guarded by mutex_
    QString path_;                   // guarded by mutex_
    qint64 type_ = -1;               // guarded by mutex_
    ProgressIndicator spinner_;      // guarded by mutex_
    ProgressIndicator progressBar_;  // guarded by mutex_
    std::atomic<VolumeStatus> status_{Idle};
    std::atomic<bool> removed_{false};
    std::optional<QString> errorString_;  // guarded by mutex_
    std::atomic<qint64> threadCount_{0};
    std::atomic<qint64> transferCount_{0};
    std::atomic<bool> transferEnded_{false};
    QStringList destinations_;                         // guarded by mutex_
    std::optional<QStringList> outputs_;               // guarded by mutex_
    std::uint64_t totalMediaUsage_ = 0;                // guarded by mutex_
    ChecksumMap sourceChecksumDict_;                   // guarded by mutex_
    std::shared_ptr<TransferLedger> ledger_;           // guarded by mutex_
    std::shared_ptr<const TransferOptions> options_;   // guarded by mutex_
    quint64 sourceDevice_ = 0;                         // guarded by mutex_
    std::map<QString, ChecksumMap> destChecksumDict_;  // guarded by mutex_
    QVTimeEstimate timeEstimate_;
    std::optional<QDateTime> lastProgressUpdate_;         // guarded by mutex_
    bool isFolder_ = false;                               // guarded by mutex_
    MetadataValues metadata_;                             // guarded by mutex_
    MetadataValues listedNumbers_;                        // guarded by mutex_: not yet claimed
    bool hasQTMovies_ = false;                            // guarded by mutex_
    std::optional<QStringList> qtMoviePaths_;             // guarded by mutex_
    std::vector<std::shared_ptr<CopyInfo>> failedFiles_;  // guarded by mutex_
    TransferChecks checks_;                               // guarded by mutex_
};
