#include "SwitchedAction.h"

#include "QVLog.h"
#include "SettingsStore.h"

void SwitchedAction::perform(PostActionRun& run) {
    if (step_.setting && !settings_.isOn(QString::fromLatin1(step_.setting)))
        return;
    if (!step_.logLine.isEmpty())
        QVLog::appendLog(step_.logLine);
    step_.body(run);
}
