#include "PostActionOptions.h"

#include <CLI/CLI.hpp>

#include "Preferences.h"
#include "SettingsStore.h"

namespace {

void set(SettingsStore& settings, const char* key, qint64 value) {
    settings.setOverride(QString::fromLatin1(key), PropertyList(value));
}

}  // namespace

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
        for (const char* key : SettingsKey::postActionSwitches)
            set(settings, key, 0);
        return;
    }
    if (!archive_.empty()) {
        set(settings, SettingsKey::actionArchive, 1);
        set(settings, SettingsKey::actionArchiveType, archive_ == "image" ? 0 : 1);
    }
    if (eject_)
        set(settings, SettingsKey::actionEject, 1);
}
