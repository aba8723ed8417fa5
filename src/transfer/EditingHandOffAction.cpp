#include "EditingHandOffAction.h"

#include "ClipList.h"
#include "PostActionRun.h"
#include "Preferences.h"
#include "QVAppleEvents.h"
#include "QVLog.h"
#include "QVVolume.h"
#include "SettingsStore.h"
#include "TransferOptions.h"

void EditingHandOffAction::perform(PostActionRun& run) {
    if (!run.options().isOn(SettingsKey::actionSendFCP))
        return;
    QVLog::appendLog(u"Importing into Final Cut Pro...");
    const QStringList& movies = run.movies();
    if (movies.isEmpty())
        return;
    const QString xml = ClipList(settings_, processes_, timecodeTool_).xmlForClips(movies);
    QVLog::appendLog(u"XML for clips: %@", xml);
    const QString project = run.options().editingProject;
    const QString volumeName = run.volume().name();
    if (QVAppleEvents(settings_, processes_).sendXMLToFCP(xml, project, volumeName))
        run.report(QStringLiteral("Clip list: ") +
                   QVAppleEvents::clipsFilePath(project, volumeName));
}
