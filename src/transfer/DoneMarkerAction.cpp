#include "DoneMarkerAction.h"

#include "Preferences.h"
#include "QVFileManager.h"
#include "QVVolume.h"
#include "SettingsStore.h"

void DoneMarkerAction::perform(const std::shared_ptr<QVVolume>& volume) {
    if (settings_.isOn(SettingsKey::writeDoneFlag) && !volume->isFolder())
        files_.createEmptyFile(volume->path() + QStringLiteral("/.cardsweep"));
}
