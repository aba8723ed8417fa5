#include "SettingsCommand.h"

#include <cstdio>

#include "AppContext.h"
#include "PropertyList.h"
#include "SettingsStore.h"

SettingsCommand::SettingsCommand() : CliCommand("settings", "Print the settings in effect") {}

int SettingsCommand::run(AppContext& context) {
    const SettingsStore& store = context.settings();
    PropertyList::Dictionary effective = store.registeredDefaults();
    // Kept in a variable: the loop must not run over a temporary's insides.
    const PropertyList stored = PropertyList::readFile(store.path());
    for (const auto& [key, value] : stored.toDictionary())
        effective[key] = value;
    const QByteArray xml = PropertyList(effective).toXml();
    std::fwrite(xml.constData(), 1, static_cast<std::size_t>(xml.size()), stdout);
    return 0;
}
