#pragma once
// Every key of the application's settings, each declared once with the type it is read as and,
// when it is registered at start-up, its default. The registered defaults are built from this
// list (Preferences::registeredDefaults). Constants; any thread.

#include <tuple>

#include "Setting.h"

namespace SettingsKey {

/// The documents folder's "Transferred Media", used.
DestinationEntry defaultDestination();
/// The metadata fields of a fresh install: "Day", "Reel" and "Timestamp".
PropertyList::Array defaultMetadata();

// Registered at start-up.
inline constexpr Setting<QString> projectName{"projectName",
                                              [] { return QStringLiteral("Untitled Project"); }};
inline constexpr Setting<std::vector<DestinationEntry>> destinationList{
    "destinationList", [] { return std::vector<DestinationEntry>{defaultDestination()}; }};
inline constexpr Setting<bool> processingEnabled{"processingEnabled", [] { return false; }};
inline constexpr Setting<qint64> concurrentThreads{"concurrentThreads", [] { return qint64(1); }};
// 0: the card's files are copied; anything else: the whole card is read into an image.
inline constexpr Setting<qint64> transferType{"transferType", [] { return qint64(0); }};
inline constexpr Setting<IntegerSwitch> writeDoneFlag{"writeDoneFlag", [] { return true; }};
inline constexpr Setting<IntegerSwitch> verifyFileSizes{"verifyFileSizes", [] { return true; }};
inline constexpr Setting<IntegerSwitch> verifyFileChecksums{"verifyFileChecksums",
                                                            [] { return true; }};
inline constexpr Setting<IntegerSwitch> actionGrowl{"actionGrowl", [] { return true; }};
inline constexpr Setting<IntegerSwitch> actionBounceDock{"actionBounceDock", [] { return true; }};
inline constexpr Setting<PropertyList> metadata{"metadata",
                                                [] { return PropertyList(defaultMetadata()); }};
// On: copies are checked by reading each write back at once (the page cache may answer) instead
// of from their medium once flushed.
inline constexpr Setting<IntegerSwitch> inlineVerification{"inlineVerification",
                                                           [] { return false; }};
// On: each complete copy carries an ASC MHL history (ascmhl/) beside its manifest.
inline constexpr Setting<IntegerSwitch> writeAscMhl{"writeAscMhl", [] { return true; }};

// Read as absent until first written.
inline constexpr Setting<qint64> checksumFormat{"checksumFormat"};
// Further digests (checksumFormat values) made from the same read and kept in the history.
inline constexpr Setting<PropertyList> alsoChecksumFormats{"alsoChecksumFormats"};
inline constexpr Setting<IntegerSwitch> onlyCopyQTMovies{"onlyCopyQTMovies"};
inline constexpr Setting<IntegerSwitch> actionProjectMetadata{"actionProjectMetadata"};
inline constexpr Setting<IntegerSwitch> actionEmbedQTMetadata{"actionEmbedQTMetadata"};
inline constexpr Setting<IntegerSwitch> actionShowFinder{"actionShowFinder"};
inline constexpr Setting<IntegerSwitch> actionOpenQTPlayer{"actionOpenQTPlayer"};
inline constexpr Setting<IntegerSwitch> actionSendFCP{"actionSendFCP"};
inline constexpr Setting<IntegerSwitch> actionArchive{"actionArchive"};
inline constexpr Setting<qint64> actionArchiveType{"actionArchiveType"};  // 0: an image, else zip
inline constexpr Setting<IntegerSwitch> archiveToCustomDir{"archiveToCustomDir"};
inline constexpr Setting<IntegerSwitch> actionEject{"actionEject"};
inline constexpr Setting<IntegerSwitch> actionSound{"actionSound"};
inline constexpr Setting<QString> archiveDirectory{"archiveDirectory"};
inline constexpr Setting<QString> fcpProjectPath{"fcpProjectPath"};
inline constexpr Setting<QStringList> recentProjects{"recentProjects"};
inline constexpr Setting<QStringList> recentProjectPaths{"recentProjectPaths"};
inline constexpr Setting<QStringList> ignoredVolumes{"ignoredVolumes"};
inline constexpr Setting<PropertyList::Dictionary> failureCounts{"failureCounts"};
inline constexpr Setting<PropertyList> lastTransferDate{"lastTransferDate"};
// The metadata values of the cards whose transfers started here, newest last, by card identity.
inline constexpr Setting<PropertyList> transferredCards{"transferredCards"};
inline constexpr Setting<PropertyList> destinations{"destinations"};  // obsolete, migrated
// The program that receives clips (found by name or path), and the version it reports.
inline constexpr Setting<QString> editingApplication{"editingApplication"};
inline constexpr Setting<QString> editingApplicationVersion{"editingApplicationVersion"};
// The usage upload: where it goes, the page that explains it, and what decides when it is due.
inline constexpr Setting<QString> analyticsEndpoint{"analyticsEndpoint"};
inline constexpr Setting<QString> analyticsInfoPage{"analyticsInfoPage"};
inline constexpr Setting<qint64> launchCount{"launchCount"};
inline constexpr Setting<PropertyList> lastSubmission{"lastSubmission"};
inline constexpr Setting<QString> lastOSVersion{"lastOSVersion"};

/// Every key above.
inline constexpr auto all = std::tuple{&projectName,
                                       &destinationList,
                                       &processingEnabled,
                                       &concurrentThreads,
                                       &transferType,
                                       &writeDoneFlag,
                                       &verifyFileSizes,
                                       &verifyFileChecksums,
                                       &actionGrowl,
                                       &actionBounceDock,
                                       &metadata,
                                       &inlineVerification,
                                       &writeAscMhl,
                                       &checksumFormat,
                                       &alsoChecksumFormats,
                                       &onlyCopyQTMovies,
                                       &actionProjectMetadata,
                                       &actionEmbedQTMetadata,
                                       &actionShowFinder,
                                       &actionOpenQTPlayer,
                                       &actionSendFCP,
                                       &actionArchive,
                                       &actionArchiveType,
                                       &archiveToCustomDir,
                                       &actionEject,
                                       &actionSound,
                                       &archiveDirectory,
                                       &fcpProjectPath,
                                       &recentProjects,
                                       &recentProjectPaths,
                                       &ignoredVolumes,
                                       &failureCounts,
                                       &lastTransferDate,
                                       &transferredCards,
                                       &destinations,
                                       &editingApplication,
                                       &editingApplicationVersion,
                                       &analyticsEndpoint,
                                       &analyticsInfoPage,
                                       &launchCount,
                                       &lastSubmission,
                                       &lastOSVersion};

/// The switch of every optional step after a verified transfer, in the order the steps run; the
/// manifest has none, it is always written.
inline constexpr const Setting<IntegerSwitch>* postActionSwitches[] = {
    &writeDoneFlag,      &actionProjectMetadata, &actionEmbedQTMetadata, &actionShowFinder,
    &actionOpenQTPlayer, &actionSendFCP,         &actionArchive,         &actionEject,
    &actionSound,        &actionGrowl,           &actionBounceDock};

}  // namespace SettingsKey
