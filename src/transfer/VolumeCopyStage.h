#pragma once
// File-mode transfer of a volume: every item of the card to every destination through the
// copy engine, the copies read back from their medium, the manifests, the report, the ASC MHL
// history and the outcome; and the disk image of a card in disk mode. Runs on the worker's
// thread; the sidecars of one volume are written by one thread at a time.

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <memory>
#include <vector>

#include "DigestContext.h"
#include "TransferReport.h"

struct ControllerContext;
struct CopyFilesSettings;
class QVVolume;
class TransferLedger;
class VolumeCopy;

class VolumeCopyStage {
  public:
    explicit VolumeCopyStage(ControllerContext& context) : c_(context) {}

    /// Copies the card file by file to every destination, writes the manifests, sets the
    /// outcome and finishes the volume. Always true: failures are recorded in the volume.
    bool copyDisk(const QString& path, const QStringList& destinations,
                  const std::shared_ptr<QVVolume>& volume);
    bool copyItem(const QString& item, const QStringList& destinations,
                  const QString& relativeSource, const std::shared_ptr<QVVolume>& volume);
    /// Copies the named entries of the volume into its destinations; no manifest, no outcome.
    void copyFilesWithSettings(const CopyFilesSettings& settings);
    void copyFiles(const QStringList& names, const std::shared_ptr<QVVolume>& volume);
    /// Reads the block device behind the volume raw into a read-only image, digesting both on
    /// the way. True once a device was found.
    bool createDiskImage(const QString& imagePath, const QString& volumePath);
    /// The manifest (digest TAB name LF) into every destination, from the transfer's ledger;
    /// one that can't be written whole makes that destination incomplete.
    void writeChecksumFileForVolume(QVVolume& volume);
    /// Files that contradict the card's own ASC MHL history become failures (before manifests).
    void checkCardHistory(QVVolume& volume, const QString& cardPath);
    /// The transfer report beside every destination's manifest.
    void writeReportForVolume(QVVolume& volume, const QString& cardPath,
                              const TransferReport::Content& report);
    /// What the report says of this transfer, from its ledger and the volume.
    TransferReport::Content reportContent(QVVolume& volume, const QDateTime& start);
    /// Continues the ASC MHL history of every complete destination (after every sidecar).
    void writeHistoryForVolume(QVVolume& volume, const QString& cardRecord);
    /// A transfer that ended early marks the folders it wrote into (manifest, report), unless
    /// they are being removed.
    void markEndedEarly(const std::shared_ptr<QVVolume>& volume, const QString& cardPath,
                        const QDateTime& started);

  private:
    /// The list for the standard checksum tools beside the manifest, one destination's.
    void writeChecksumList(const TransferLedger& ledger, std::size_t destination,
                           const QByteArray& folder, DigestContext::Kind kind);
    /// A walk of the volume's items into these destinations, checked as the settings say.
    std::unique_ptr<VolumeCopy> startVolumeCopy(const std::shared_ptr<QVVolume>& volume,
                                                const QStringList& destinations,
                                                const QString& relativeSource);
    bool copyVolumeItems(const QString& path, const QStringList& destinations,
                         const std::shared_ptr<QVVolume>& volume, std::vector<int>* copyErrors);
    /// copyErrors: per destination, errno of the failure that put it out of use, else 0;
    /// freeAtStart: the space each destination had when the copy began.
    void setOutcome(QVVolume& volume, bool copyFailed, const std::vector<int>& copyErrors,
                    const std::vector<std::uint64_t>& freeAtStart);
    /// "No space left on NAME (needs X, Y free)" for each full destination, then the complete
    /// ones; empty when no destination ran out of space.
    QString fullDestinationsText(QVVolume& volume, const std::vector<int>& copyErrors,
                                 const std::vector<std::uint64_t>& freeAtStart) const;

    ControllerContext& c_;
};
