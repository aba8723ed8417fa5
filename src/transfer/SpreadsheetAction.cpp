#include "SpreadsheetAction.h"

#include <QFileInfo>

#include "DestinationEntry.h"
#include "MetadataSpreadsheet.h"
#include "PostActionRun.h"
#include "Preferences.h"
#include "QVLog.h"
#include "QVVolume.h"
#include "TransferOptions.h"
#include "VolumeSpreadsheet.h"

namespace {

QStringList components(const QString& path) {
    return path.split(u'/', Qt::SkipEmptyParts);
}

}  // namespace

QString SpreadsheetAction::spreadsheetPath(const QString& destination, const QString& entryPath) {
    const QStringList parts = components(destination);
    const qsizetype depth = components(entryPath).size() + 1;
    const QString project =
        parts.size() >= depth ? u'/' + parts.mid(0, depth).join(u'/') : destination;
    return QStringLiteral("%1/%2 Metadata.csv").arg(project, QFileInfo(project).fileName());
}

void SpreadsheetAction::perform(PostActionRun& run) {
    const TransferOptions& options = run.options();
    if (!options.isOn(SettingsKey::actionProjectMetadata))
        return;
    QVLog::appendLog(u"Writing metadata spreadsheet...");
    // Every entry counts, ticked or not: a project folder is where the copy landed.
    const auto& entries = options.destinationList;
    const auto& fields = options.fields;
    const SpreadsheetVolume row = VolumeSpreadsheet::describe(run.volume(), disks_);
    for (const QString& destination : run.volume().destinations()) {
        for (const DestinationEntry& entry : entries) {
            if (!destination.startsWith(entry.path))
                continue;
            const QString sheet = spreadsheetPath(destination, entry.path);
            if (MetadataSpreadsheet::writeMetadataToFile(sheet, row, fields))
                run.report(QStringLiteral("Spreadsheet: ") + sheet);
        }
    }
}
