#pragma once
// The settings' registered defaults, the start-up migration and repairs, the project
// histories, and the analytics consent switch kept in its own file.

#include <QString>
#include <QStringList>
#include <vector>

#include "DestinationEntry.h"
#include "SettingsKeys.h"
#include "SettingsStore.h"

class Preferences {
  public:
    explicit Preferences(SettingsStore& store) : store_(store) {}

    SettingsStore& store() const { return store_; }

    /// The default of every key that has one (SettingsKeys.h).
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
    QStringList addToHistory(const Setting<QStringList>& key, const QString& text);

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
