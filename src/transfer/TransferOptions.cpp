#include "TransferOptions.h"

#include <algorithm>

#include "Preferences.h"
#include "SettingsStore.h"

namespace {

DigestContext::Kind digestOf(qint64 checksumFormat) {
    return DigestContext::Kind(int(verificationTypeFor(checksumFormat)) - 1);
}

std::vector<DigestContext::Kind> alsoDigestsOf(const SettingsStore& settings,
                                               DigestContext::Kind main) {
    std::vector<DigestContext::Kind> kinds;
    const PropertyList list = settings.get(SettingsKey::alsoChecksumFormats);
    if (list.type() != PropertyList::Type::Array)
        return kinds;
    for (const PropertyList& value : list.toArray()) {
        const DigestContext::Kind kind = digestOf(value.toInteger());
        if (kind != main && std::find(kinds.begin(), kinds.end(), kind) == kinds.end())
            kinds.push_back(kind);
    }
    return kinds;
}

}  // namespace

bool TransferOptions::isOn(const Setting<IntegerSwitch>& postActionSwitch) const {
    return switchedOn_.contains(postActionSwitch.key());
}

std::shared_ptr<const TransferOptions> TransferOptions::read(const SettingsStore& settings) {
    auto options = std::make_shared<TransferOptions>();
    options->verification = verificationTypeFor(settings.get(SettingsKey::checksumFormat));
    options->alsoDigests = alsoDigestsOf(settings, options->digest());
    options->verifySizes = settings.get(SettingsKey::verifyFileSizes);
    options->verifyChecksums = settings.get(SettingsKey::verifyFileChecksums);
    options->inlineVerification = settings.get(SettingsKey::inlineVerification);
    options->onlyMovies = settings.get(SettingsKey::onlyCopyQTMovies);
    options->diskImage = settings.get(SettingsKey::transferType) != 0;
    options->writeHistory = settings.get(SettingsKey::writeAscMhl);
    options->notify = settings.get(SettingsKey::actionGrowl);
    options->projectTitle = Preferences::projectTitle(settings);
    options->fields = MetadataField::listFrom(settings.get(SettingsKey::metadata));
    options->destinationList = settings.get(SettingsKey::destinationList);
    options->archiveType = int(settings.get(SettingsKey::actionArchiveType));
    options->archiveToCustomFolder = settings.get(SettingsKey::archiveToCustomDir);
    options->archiveFolder = settings.get(SettingsKey::archiveDirectory);
    options->editingProject = settings.get(SettingsKey::fcpProjectPath);
    for (const Setting<IntegerSwitch>* postActionSwitch : SettingsKey::postActionSwitches) {
        if (settings.get(*postActionSwitch))
            options->switchedOn_ << postActionSwitch->key();
    }
    return options;
}
