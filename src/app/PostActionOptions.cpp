#include "PostActionOptions.h"

#include <CLI/CLI.hpp>

#include "Preferences.h"
#include "SettingsStore.h"

void PostActionOptions::addTo(CLI::App& command) {
    command
        .add_option("--archive", archive_,
                    "Also archive the first copy: a zip, or a read-only squashfs image")
        ->check(CLI::IsMember({"zip", "image"}));
    command.add_flag("--eject", eject_, "Eject the card once it is verified");
    command.add_flag("--no-post-actions", none_,
                     "Only the checksum manifest after the transfer: no marker, sheet, archive, "
                     "eject or notification");
}

void PostActionOptions::applyTo(SettingsStore& settings) const {
    if (none_) {
        for (const Setting<IntegerSwitch>* postActionSwitch : SettingsKey::postActionSwitches)
            settings.setOverride(*postActionSwitch, false);
        return;
    }
    if (!archive_.empty()) {
        settings.setOverride(SettingsKey::actionArchive, true);
        settings.setOverride(SettingsKey::actionArchiveType, archive_ == "image" ? 0 : 1);
    }
    if (eject_)
        settings.setOverride(SettingsKey::actionEject, true);
}
