#include "SettingsKeys.h"

#include "QVLocalPaths.h"

namespace {

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

DestinationEntry SettingsKey::defaultDestination() {
    return {1, QVLocalPaths::documentDirectory(true) + QStringLiteral("/Transferred Media")};
}

PropertyList::Array SettingsKey::defaultMetadata() {
    return {
        metadataRow("Day", 1, "1", 1, 1, 1),
        metadataRow("Reel", 2, "0", 1, 1, 1),
        metadataRow("Timestamp", 3, "", 0, 1, 0),
    };
}
