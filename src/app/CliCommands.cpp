#include "CliCommands.h"

#include <cstdio>

#include "QVLog.h"

namespace {

void printLine(const QString& label, const QString& value) {
    std::printf("%-18s %s\n", label.toUtf8().constData(), value.toUtf8().constData());
}

}  // namespace

int CliCommands::paths() const {
    printLine(QStringLiteral("Settings:"), preferences_.store().path());
    printLine(QStringLiteral("Analytics switch:"), Preferences::qcFilePath());
    printLine(QStringLiteral("Log folder:"), QVLog::logFolder());
    for (const QString& log : QVLog::availableLogs()) {
        printLine(QStringLiteral("Log:"), log);
    }
    return 0;
}

int CliCommands::settings() const {
    PropertyList::Dictionary effective = preferences_.store().registeredDefaults();
    // Kept in a variable: the loop must not run over a temporary's insides.
    const PropertyList stored = PropertyList::readFile(preferences_.store().path());
    for (const auto& [key, value] : stored.toDictionary())
        effective[key] = value;
    const QByteArray xml = PropertyList(effective).toXml();
    std::fwrite(xml.constData(), 1, static_cast<std::size_t>(xml.size()), stdout);
    return 0;
}
