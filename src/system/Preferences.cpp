#include "Preferences.h"

#include "QVLocalPaths.h"

namespace {

constexpr int kHistoryLength = 15;

}  // namespace

PropertyList::Dictionary Preferences::registeredDefaults() {
    PropertyList::Dictionary defaults;
    const auto add = [&defaults](const auto* setting) {
        const PropertyList value = setting->storedDefault();
        if (!value.isAbsent())
            defaults[setting->key()] = value;
    };
    std::apply([&add](const auto*... settings) { (add(settings), ...); }, SettingsKey::all);
    return defaults;
}

std::vector<DestinationEntry> Preferences::registerAndMigrate() {
    store_.registerDefaults(registeredDefaults());

    const PropertyList obsolete = store_.get(SettingsKey::destinations);
    if (obsolete.type() == PropertyList::Type::Array) {
        std::vector<DestinationEntry> migrated;
        for (const QString& path : obsolete.toStringList()) {
            migrated.push_back({1, path});
        }
        setDestinationList(migrated);
        store_.remove(SettingsKey::destinations);
    }

    std::vector<DestinationEntry> list = destinationList();
    if (list.empty()) {
        list.push_back(SettingsKey::defaultDestination());
    }
    return list;
}

std::vector<DestinationEntry> Preferences::destinationList() const {
    return store_.get(SettingsKey::destinationList);
}

void Preferences::setDestinationList(const std::vector<DestinationEntry>& list) {
    store_.set(SettingsKey::destinationList, list);
}

void Preferences::repairConcurrentThreads() {
    if (store_.get(SettingsKey::concurrentThreads) < 1) {
        store_.set(SettingsKey::concurrentThreads, 2);
    }
}

QStringList Preferences::ignoreVolumeNames(const QStringList& names) {
    QStringList added;
    store_.transaction([&] {
        QStringList ignored = store_.get(SettingsKey::ignoredVolumes);
        for (const QString& name : names) {
            if (ignored.contains(name))
                continue;
            ignored << name;
            added << name;
        }
        if (!added.isEmpty())
            store_.set(SettingsKey::ignoredVolumes, ignored);
    });
    return added;
}

QString Preferences::projectTitle(const SettingsStore& store) {
    const QString title = store.get(SettingsKey::projectName);
    return title.isEmpty() ? SettingsKey::projectName.registeredDefault() : title;
}

QStringList Preferences::addToHistory(const Setting<QStringList>& key, const QString& text) {
    QStringList history = store_.get(key);
    if (text.isEmpty() || history.contains(text)) {
        return history;
    }
    history.prepend(text);
    if (history.size() > kHistoryLength) {
        history.removeLast();
    }
    store_.set(key, history);
    return history;
}

QString Preferences::globalFilePath() {
    return QVLocalPaths::prefsDirectory(true) + QStringLiteral("/com.quorvant.global.plist");
}

QString Preferences::qcFilePath() {
    return QVLocalPaths::prefsDirectory(true) + QStringLiteral("/com.quorvant.qc.plist");
}

bool Preferences::qcLoggingEnabled() {
    return PropertyList::readFile(qcFilePath())[QStringLiteral("logQC")].toInteger() == 1;
}

void Preferences::setQCLogging(bool enabled) {
    PropertyList::Dictionary contents = PropertyList::readFile(qcFilePath()).toDictionary();
    contents[QStringLiteral("logQC")] = enabled;
    PropertyList(contents).writeFile(qcFilePath());
}
