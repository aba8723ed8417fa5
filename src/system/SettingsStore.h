#pragma once
// The per-user defaults store: values kept in an XML property-list file over defaults
// registered in memory. A key that is neither stored nor registered reads as absent
// (0 / NO / empty). Every write goes to disk at once, atomically, under a lock on the file
// shared with other processes, after reading back what they wrote. Thread-safe.

#include <QString>
#include <functional>
#include <mutex>

#include "PropertyList.h"
#include "Setting.h"

class SettingsStore {
  public:
    /// Loads the file at `path`. An unreadable or malformed file is logged, copied aside
    /// with a ".corrupt" suffix, and the store starts from the registered defaults.
    explicit SettingsStore(QString path);

    /// $XDG_CONFIG_HOME/Quorvant/com.quorvant.Cardsweep.plist
    static QString defaultPath();

    QString path() const { return path_; }

    void registerDefaults(const PropertyList::Dictionary& defaults);
    PropertyList::Dictionary registeredDefaults() const;

    /// A declared setting, read as its type (SettingsKeys.h).
    template <typename T>
    typename Setting<T>::Value get(const Setting<T>& setting) const {
        return SettingValue<T>::read(object(setting.key()));
    }
    template <typename T>
    void set(const Setting<T>& setting, const typename Setting<T>::Value& value) {
        setObject(setting.key(), SettingValue<T>::write(value));
    }
    template <typename T>
    void remove(const Setting<T>& setting) {
        remove(setting.key());
    }
    /// A value for this run only: it shadows the stored one and is never written. Writing the
    /// key drops the override.
    template <typename T>
    void setOverride(const Setting<T>& setting, const typename Setting<T>::Value& value) {
        setOverride(setting.key(), SettingValue<T>::write(value));
    }

    /// The value as stored, whatever its type (the store's own work, a value written by hand).
    PropertyList object(const QString& key) const;
    void setObject(const QString& key, const PropertyList& value);
    void remove(const QString& key);
    void setOverride(const QString& key, const PropertyList& value);

    /// Writes the stored values; false (and a log line) when the file can't be written.
    bool synchronize();

    /// Runs `change` holding the settings file's lock, with the stored values freshly read from
    /// the file, so a read-modify-write (a counter handed out) is whole across processes too.
    /// Transactions nest; other threads' wait.
    void transaction(const std::function<void()>& change);

    /// Why the file couldn't be read when the store was made; empty when it could.
    QString loadProblem() const;

  private:
    void load();
    void reload();  // REQUIRES: mutex_ is held
    bool writeLocked();

    const QString path_;
    mutable std::mutex mutex_;
    PropertyList::Dictionary stored_;      // guarded by mutex_
    PropertyList::Dictionary registered_;  // guarded by mutex_
    PropertyList::Dictionary overrides_;   // guarded by mutex_
    bool writable_ = true;  // guarded by mutex_; off when a bad file could not be kept aside
    QString loadProblem_;   // guarded by mutex_

    std::recursive_mutex transactionMutex_;  // one transaction at a time in this process
    int depth_ = 0;                          // guarded by transactionMutex_
    int lockFd_ = -1;                        // guarded by transactionMutex_
};
