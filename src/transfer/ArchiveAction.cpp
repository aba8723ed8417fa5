#include "ArchiveAction.h"

#include <QDir>
#include <QFileInfo>

#include "PostActionRun.h"
#include "Preferences.h"
#include "ProcessRunner.h"
#include "QVFileManager.h"
#include "QVLog.h"
#include "QVVolume.h"
#include "SettingsStore.h"
#include "TransferOptions.h"
#include "ZipArchive.h"

namespace {

QString archivePath(const QString& target, const QVVolume& volume, const QString& first,
                    const QString& extension) {
    return QStringLiteral("%1/%2 %3 Archive.%4")
        .arg(target, volume.name(), QFileInfo(first).fileName(), extension);
}

}  // namespace

void ArchiveAction::perform(PostActionRun& run) {
    if (!run.options().isOn(SettingsKey::actionArchive))
        return;
    QVLog::appendLog(u"Archiving volume...");
    const QString target = targetFolder(run);
    const QString archive =
        run.options().archiveType == 0 ? diskImage(run, target) : zip(run, target);
    if (!archive.isEmpty())
        run.report(QStringLiteral("Archive: ") + archive);
}

QString ArchiveAction::targetFolder(const PostActionRun& run) {
    const QString& first = run.firstDestination();
    const TransferOptions& options = run.options();
    if (!options.archiveToCustomFolder)
        return first;
    const QString target = QDir::cleanPath(options.archiveFolder + u'/' + options.projectTitle);
    if (files_.isDirectoryAtPath(target) || files_.createDirectory(target, false))
        return target;
    QVLog::appendLog(
        u"Unable to create archive directory at %@ - defaulting to first destination %@", target,
        first);
    return first;
}

QString ArchiveAction::diskImage(PostActionRun& run, const QString& target) {
    const QString first = run.firstDestination();
    QVLog::appendLog(u"Archiving %@ to disk image...", first);
    // The image mounts under the folder's name; it must never be taken for a card.
    Preferences(settings_).ignoreVolumeNames({QFileInfo(first).fileName()});
    const QString image = archivePath(target, run.volume(), first, QStringLiteral("dmg"));
    const ProcessResult result =
        processes_.run(QStringLiteral("mksquashfs"),
                       {first, image, QStringLiteral("-noappend"), QStringLiteral("-no-progress")});
    QVLog::appendLog(u"Disk image creation output: %@", QString::fromUtf8(result.output));
    const bool made = result.started && !result.timedOut && result.exitCode == 0;
    return made ? image : QString();
}

QString ArchiveAction::zip(PostActionRun& run, const QString& target) {
    const QString first = run.firstDestination();
    QVLog::appendLog(u"Archiving %@ to zip file...", first);
    const QString archive = archivePath(target, run.volume(), first, QStringLiteral("zip"));
    // The archiver logs its own errors; like a quiet command-line zipper it says nothing else.
    const bool made = ZipArchive::compress(first, archive, false);
    QVLog::appendLog(u"Zip creation output: %@",
                     made ? QString() : QStringLiteral("the zip file could not be written"));
    return made ? archive : QString();
}
