#include "SettingsStore.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <memory>

#include "QVFormat.h"
#include "QVLocalPaths.h"
#include "QVLog.h"

SettingsStore::SettingsStore(QString path) : path_(std::move(path)) {
    load();
}

QString SettingsStore::defaultPath() {
    return QVLocalPaths::prefsDirectory(true) +
           QStringLiteral("/Quorvant/com.quorvant.Cardsweep.plist");
}

void SettingsStore::load() {
    PropertyList::ReadStatus status = PropertyList::ReadStatus::Ok;
    const PropertyList contents = PropertyList::readFile(path_, &status);
    if (status == PropertyList::ReadStatus::Missing) {
        return;
    }
    if (status == PropertyList::ReadStatus::Ok &&
        contents.type() == PropertyList::Type::Dictionary) {
        stored_ = contents.toDictionary();
        return;
    }
    // Keep the damaged file for the user; never write over it unless a copy exists.
    const QString keptPath = path_ + QStringLiteral(".corrupt");
    QFile::remove(keptPath);
    if (QFile::copy(path_, keptPath)) {
        loadProblem_ = QVFormat::format(
            u"Settings file %@ could not be read; kept it as %@ and started from the defaults",
            path_, keptPath);
    } else {
        writable_ = false;
        loadProblem_ = QVFormat::format(
            u"Settings file %@ could not be read or copied aside; settings will not be saved "
            u"this session",
            path_);
    }
    QVLog::appendLog(u"%@", loadProblem_);
}

QString SettingsStore::loadProblem() const {
    const std::lock_guard lock(mutex_);
    return loadProblem_;
}

// What another process saved since is taken in; a file that can't be read now changes nothing.
void SettingsStore::reload() {
    if (!writable_)
        return;
    PropertyList::ReadStatus status = PropertyList::ReadStatus::Ok;
    const PropertyList contents = PropertyList::readFile(path_, &status);
    if (status == PropertyList::ReadStatus::Ok && contents.type() == PropertyList::Type::Dictionary)
        stored_ = contents.toDictionary();
}

void SettingsStore::transaction(const std::function<void()>& change) {
    const std::lock_guard inProcess(transactionMutex_);
    if (depth_++ == 0) {
        QDir().mkpath(QFileInfo(path_).absolutePath());
        lockFd_ = ::open(QFile::encodeName(path_ + QStringLiteral(".lock")).constData(),
                         O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        // Without a lock file (a read-only folder) nothing can be saved anyway.
        while (lockFd_ >= 0 && ::flock(lockFd_, LOCK_EX) != 0 && errno == EINTR) {
        }
        const std::lock_guard lock(mutex_);
        reload();
    }
    const std::shared_ptr<void> release(nullptr, [this](void*) {
        if (--depth_ > 0 || lockFd_ < 0)
            return;
        ::flock(lockFd_, LOCK_UN);
        ::close(lockFd_);
        lockFd_ = -1;
    });
    change();
}

void SettingsStore::registerDefaults(const PropertyList::Dictionary& defaults) {
    const std::lock_guard lock(mutex_);
    for (const auto& [key, value] : defaults) {
        registered_[key] = value;
    }
}

PropertyList::Dictionary SettingsStore::registeredDefaults() const {
    const std::lock_guard lock(mutex_);
    return registered_;
}

PropertyList SettingsStore::object(const QString& key) const {
    const std::lock_guard lock(mutex_);
    if (const auto it = overrides_.find(key); it != overrides_.end()) {
        return it->second;
    }
    if (const auto it = stored_.find(key); it != stored_.end()) {
        return it->second;
    }
    if (const auto it = registered_.find(key); it != registered_.end()) {
        return it->second;
    }
    return {};
}

void SettingsStore::setOverride(const QString& key, const PropertyList& value) {
    const std::lock_guard lock(mutex_);
    overrides_[key] = value;
}

void SettingsStore::setObject(const QString& key, const PropertyList& value) {
    transaction([&] {
        const std::lock_guard lock(mutex_);
        overrides_.erase(key);
        if (value.isAbsent()) {
            stored_.erase(key);
        } else {
            stored_[key] = value;
        }
        writeLocked();
    });
}

void SettingsStore::remove(const QString& key) {
    setObject(key, PropertyList());
}

bool SettingsStore::synchronize() {
    bool written = false;
    transaction([&] {
        const std::lock_guard lock(mutex_);
        written = writeLocked();
    });
    return written;
}

// REQUIRES: mutex_ is held.
bool SettingsStore::writeLocked() {
    if (!writable_) {
        return false;
    }
    QDir().mkpath(QFileInfo(path_).absolutePath());
    if (PropertyList(stored_).writeFile(path_)) {
        return true;
    }
    QVLog::appendLog(u"Unable to write settings to %@", path_);
    return false;
}
