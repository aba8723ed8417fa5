#pragma once
// What one transfer does, read from the settings once, when its card is admitted, and carried
// with it to its end: a setting changed meanwhile counts from the next transfer. Made whole and
// never changed afterwards, so the transfer's threads share it without a lock.

#include <QString>
#include <QStringList>
#include <memory>
#include <vector>

#include "CopyInfo.h"
#include "DestinationEntry.h"
#include "DigestContext.h"
#include "MetadataField.h"
#include "Setting.h"

class SettingsStore;

struct TransferOptions {
    /// The manifest's digest, and the further ones made from the same read (neither the
    /// manifest's nor repeated).
    VerificationType verification = VerificationType::MD5;
    std::vector<DigestContext::Kind> alsoDigests;
    bool verifySizes = true;
    bool verifyChecksums = true;
    /// Each write checked at once instead of read back from its medium once flushed.
    bool inlineVerification = false;
    bool onlyMovies = false;
    /// The whole card read into an image instead of its files copied.
    bool diskImage = false;
    bool writeHistory = true;
    bool notify = true;
    QString projectTitle;
    std::vector<MetadataField> fields;
    /// Every destination entry, ticked or not (where a project folder begins).
    std::vector<DestinationEntry> destinationList;
    int archiveType = 0;  // 0: a disk image, else a zip file
    bool archiveToCustomFolder = false;
    QString archiveFolder;
    QString editingProject;

    DigestContext::Kind digest() const { return DigestContext::Kind(int(verification) - 1); }
    /// Whether the step after a verified transfer switched by this setting runs.
    bool isOn(const Setting<IntegerSwitch>& postActionSwitch) const;

    /// The settings as they are now.
    static std::shared_ptr<const TransferOptions> read(const SettingsStore& settings);

  private:
    QStringList switchedOn_;
};
