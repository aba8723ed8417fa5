#include "Preferences.h"

#include "QVLocalPaths.h"

namespace {

constexpr int kHistoryLength = 15;
const QString kUntitledProject = QStringLiteral("Untitled Project");

PropertyList metadataRow(const char* title, int type, const char* defaultValue, int visible,
                         int useInPath, int useInSpreadsheet) {
    return PropertyList::Dictionary{
        {QStringLiteral("title"), title},
        {QStringLiteral("type"), type},
        {QStringLiteral("defaultVal"), defaultValue},
        {QStringLiteral("visible"), visible},
        {QStringLiteral("useInPath"), useInPath},
        {QStringLiteral("useInSpreadsheet"), useInSpreadsheet},
    };
}

}  // namespace

DestinationEntry Preferences::defaultDestination() {
    return {1, QVLocalPaths::documentDirectory(true) + QStringLiteral("/Transferred Media")};
}

PropertyList::Array Preferences::defaultMetadata() {
    return {
        metadataRow("Day", 1, "1", 1, 1, 1),
        metadataRow("Reel", 2, "0", 1, 1, 1),
        metadataRow("Timestamp", 3, "", 0, 1, 0),
    };
}

PropertyList::Dictionary Preferences::registeredDefaults() {
    return {
        {SettingsKey::projectName, kUntitledProject},
        {SettingsKey::destinationList, PropertyList::Array{defaultDestination().toPropertyList()}},
        {SettingsKey::processingEnabled, false},
        {SettingsKey::concurrentThreads, 1},
        {SettingsKey::transferType, 0},
        {SettingsKey::writeDoneFlag, 1},
        {SettingsKey::verifyFileSizes, 1},
        {SettingsKey::verifyFileChecksums, 1},
        {SettingsKey::actionGrowl, 1},
        {SettingsKey::actionBounceDock, 1},
        {SettingsKey::metadata, defaultMetadata()},
        {SettingsKey::inlineVerification, 0},
        {SettingsKey::writeAscMhl, 1},
    };
}

std::vector<DestinationEntry> Preferences::registerAndMigrate() {
    store_.registerDefaults(registeredDefaults());

    const PropertyList obsolete = store_.object(SettingsKey::destinations);
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
        list.push_back(defaultDestination());
    }
    return list;
}

std::vector<DestinationEntry> Preferences::destinationList() const {
    return DestinationEntry::listFrom(store_.object(SettingsKey::destinationList));
}

void Preferences::setDestinationList(const std::vector<DestinationEntry>& list) {
    store_.setObject(SettingsKey::destinationList, DestinationEntry::toPropertyList(list));
}

void Preferences::repairConcurrentThreads() {
    if (store_.integer(SettingsKey::concurrentThreads) < 1) {
        store_.setObject(SettingsKey::concurrentThreads, 2);
    }
}

QStringList Preferences::ignoreVolumeNames(const QStringList& names) {
    QStringList added;
    store_.transaction([&] {
        QStringList ignored = store_.object(SettingsKey::ignoredVolumes).toStringList();
        for (const QString& name : names) {
            if (ignored.contains(name))
                continue;
            ignored << name;
            added << name;
        }
        if (added.isEmpty())
            return;
        PropertyList::Array list;
        for (const QString& name : ignored)
            list.push_back(PropertyList(name));
        store_.setObject(SettingsKey::ignoredVolumes, PropertyList(list));
    });
    return added;
}

QString Preferences::projectTitle(const SettingsStore& store) {
    const QString title = store.string(SettingsKey::projectName);
    return title.isEmpty() ? kUntitledProject : title;
}

QStringList Preferences::addToHistory(const QString& key, const QString& text) {
    QStringList history = store_.object(key).toStringList();
    if (text.isEmpty() || history.contains(text)) {
        return history;
    }
    history.prepend(text);
    if (history.size() > kHistoryLength) {
        history.removeLast();
    }
    store_.setObject(key, history);
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
