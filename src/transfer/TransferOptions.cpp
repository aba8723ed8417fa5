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
    const PropertyList list = settings.object(SettingsKey::alsoChecksumFormats);
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

bool TransferOptions::isOn(const char* postActionSwitch) const {
    return switchedOn_.contains(QString::fromLatin1(postActionSwitch));
}

std::shared_ptr<const TransferOptions> TransferOptions::read(const SettingsStore& settings) {
    auto options = std::make_shared<TransferOptions>();
    options->verification = verificationTypeFor(settings.integer(SettingsKey::checksumFormat));
    options->alsoDigests = alsoDigestsOf(settings, options->digest());
    options->verifySizes = settings.isOn(SettingsKey::verifyFileSizes);
    options->verifyChecksums = settings.isOn(SettingsKey::verifyFileChecksums);
    options->inlineVerification = settings.isOn(SettingsKey::inlineVerification);
    options->onlyMovies = settings.isOn(SettingsKey::onlyCopyQTMovies);
    options->diskImage = settings.integer(SettingsKey::transferType) != 0;
    options->writeHistory = settings.isOn(SettingsKey::writeAscMhl);
    options->notify = settings.isOn(SettingsKey::actionGrowl);
    options->projectTitle = Preferences::projectTitle(settings);
    options->fields = MetadataField::listFrom(settings.object(SettingsKey::metadata));
    options->destinationList =
        DestinationEntry::listFrom(settings.object(SettingsKey::destinationList));
    options->archiveType = int(settings.integer(SettingsKey::actionArchiveType));
    options->archiveToCustomFolder = settings.isOn(SettingsKey::archiveToCustomDir);
    options->archiveFolder = settings.string(SettingsKey::archiveDirectory);
    options->editingProject = settings.string(SettingsKey::fcpProjectPath);
    for (const char* key : SettingsKey::postActionSwitches) {
        if (settings.isOn(key))
            options->switchedOn_ << QString::fromLatin1(key);
    }
    return options;
}
