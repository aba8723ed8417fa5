#pragma once
// Leaves the done-marker at the top of a card whose transfer was verified, when the settings
// ask for it; the marker tells a later listing that the card is already offloaded. Never on a
// folder the user added.

#include "PostAction.h"

class QVFileManager;
class SettingsStore;

class DoneMarkerAction : public PostAction {
  public:
    DoneMarkerAction(SettingsStore& settings, QVFileManager& files)
        : settings_(settings), files_(files) {}
    QString name() const override { return QStringLiteral("writeDoneFlag"); }
    void perform(const std::shared_ptr<QVVolume>& volume) override;

  private:
    SettingsStore& settings_;
    QVFileManager& files_;
};
