#pragma once
// The application's settings keys, their registered defaults, the start-up migration and
// repairs, the project histories, and the analytics consent switch kept in its own file.

#include <QString>
#include <QStringList>
#include <vector>

#include "DestinationEntry.h"
#include "SettingsStore.h"

namespace SettingsKey {
inline constexpr const char* projectName = "projectName";
inline constexpr const char* destinationList = "destinationList";
inline constexpr const char* processingEnabled = "processingEnabled";
inline constexpr const char* concurrentThreads = "concurrentThreads";
inline constexpr const char* transferType = "transferType";
inline constexpr const char* writeDoneFlag = "writeDoneFlag";
inline constexpr const char* verifyFileSizes = "verifyFileSizes";
inline constexpr const char* verifyFileChecksums = "verifyFileChecksums";
inline constexpr const char* actionGrowl = "actionGrowl";
inline constexpr const char* actionBounceDock = "actionBounceDock";
inline constexpr const char* metadata = "metadata";
inline constexpr const char* checksumFormat = "checksumFormat";
// Further digests (checksumFormat values) made from the same read and kept in the history.
inline constexpr const char* alsoChecksumFormats = "alsoChecksumFormats";
inline constexpr const char* onlyCopyQTMovies = "onlyCopyQTMovies";
inline constexpr const char* actionProjectMetadata = "actionProjectMetadata";
inline constexpr const char* actionEmbedQTMetadata = "actionEmbedQTMetadata";
inline constexpr const char* actionShowFinder = "actionShowFinder";
inline constexpr const char* actionOpenQTPlayer = "actionOpenQTPlayer";
inline constexpr const char* actionSendFCP = "actionSendFCP";
inline constexpr const char* actionArchive = "actionArchive";
inline constexpr const char* actionArchiveType = "actionArchiveType";
inline constexpr const char* archiveToCustomDir = "archiveToCustomDir";
inline constexpr const char* actionEject = "actionEject";
inline constexpr const char* actionSound = "actionSound";
inline constexpr const char* archiveDirectory = "archiveDirectory";
inline constexpr const char* fcpProjectPath = "fcpProjectPath";
inline constexpr const char* recentProjects = "recentProjects";
inline constexpr const char* recentProjectPaths = "recentProjectPaths";
inline constexpr const char* ignoredVolumes = "ignoredVolumes";
inline constexpr const char* failureCounts = "failureCounts";
inline constexpr const char* lastTransferDate = "lastTransferDate";
// The metadata values of the cards whose transfers started here, newest last, by card identity.
inline constexpr const char* transferredCards = "transferredCards";
// 1: copies are checked by reading each write back at once (the page cache may answer) instead
// of from their medium once flushed.
inline constexpr const char* inlineVerification = "inlineVerification";
// 1 (the default): each complete copy carries an ASC MHL history (ascmhl/) beside its manifest.
inline constexpr const char* writeAscMhl = "writeAscMhl";
inline constexpr const char* destinations = "destinations";  // obsolete, migrated
// The switch of every optional step after a verified transfer, in the order the steps run; the
// manifest has none, it is always written.
inline constexpr const char* postActionSwitches[] = {
    writeDoneFlag,      actionProjectMetadata, actionEmbedQTMetadata, actionShowFinder,
    actionOpenQTPlayer, actionSendFCP,         actionArchive,         actionEject,
    actionSound,        actionGrowl,           actionBounceDock};
}  // namespace SettingsKey

class Preferences {
  public:
    explicit Preferences(SettingsStore& store) : store_(store) {}

    SettingsStore& store() const { return store_; }

    static DestinationEntry defaultDestination();
    static PropertyList::Array defaultMetadata();
    static PropertyList::Dictionary registeredDefaults();

    /// Start-up, once: registers the defaults, migrates the obsolete `destinations`
    /// list, and returns the destination list to keep in memory (the default entry when
    /// the stored list is empty; that repair is not written back).
    std::vector<DestinationEntry> registerAndMigrate();

    std::vector<DestinationEntry> destinationList() const;
    void setDestinationList(const std::vector<DestinationEntry>& list);

    /// When the main window is ready: a `concurrentThreads` below 1 is stored as 2.
    void repairConcurrentThreads();

    /// The project title to name folders with ("Untitled Project" when empty).
    QString projectTitle() const { return projectTitle(store_); }
    static QString projectTitle(const SettingsStore& store);

    /// Adds `text` to the front of the history under `key` (15 kept, no reordering of an
    /// entry already there) and returns the history; empty text changes nothing.
    QStringList addToHistory(const QString& key, const QString& text);

    /// Adds the names missing from `ignoredVolumes` and stores the list at once; returns the
    /// names that were added.
    QStringList ignoreVolumeNames(const QStringList& names);

    /// The switches shared by every program of ours ("growlDisabled").
    static QString globalFilePath();

    /// The analytics consent switch in "com.quorvant.qc.plist".
    static QString qcFilePath();
    static bool qcLoggingEnabled();
    static void setQCLogging(bool enabled);

  private:
    SettingsStore& store_;
};
