#include "SwitchedAction.h"

#include "PostActionRun.h"
#include "QVLog.h"
#include "TransferOptions.h"

void SwitchedAction::perform(PostActionRun& run) {
    if (step_.setting && !run.options().isOn(*step_.setting))
        return;
    if (!step_.logLine.isEmpty())
        QVLog::appendLog(step_.logLine);
    step_.body(run);
}
