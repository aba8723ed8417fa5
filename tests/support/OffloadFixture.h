#pragma once
// Base of the tests that run whole file-mode transfers through a controller: settings of their
// own in a scratch folder, two destination folders, a small card, and a wait for the outcome.

#include <gtest/gtest.h>

#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <list>
#include <memory>
#include <vector>

#include "AppController.h"
#include "FaultyFileLayer.h"
#include "FileLayer.h"
#include "QVVolume.h"
#include "RecordingAppView.h"
#include "SettingsStore.h"
#include "TestServices.h"

class OffloadFixture : public testing::Test {
  protected:
    /// What a copy of a card holds: its litter and done-marker are not copied.
    static inline const QStringList kNotCopied = {".DS_Store", ".Trashes", ".cardsweep"};

    OffloadFixture();
    void TearDown() override;

    /// A controller over the layer, ticking "dest one" and "dest two".
    void makeController(FileLayer& layer = FileLayer::posix());
    /// A fault-injecting layer that lives as long as the test's workers (post actions still
    /// write after a transfer's outcome is out).
    FaultyFileLayer& faultyLayer() { return layers_.emplace_back(); }
    /// A card of two clips (one over a block), a hidden file, a proxy and top-level litter.
    std::shared_ptr<QVVolume> card(const QString& name);
    /// A card listed from whatever is already in cards/NAME.
    std::shared_ptr<QVVolume> listCard(const QString& name);
    /// Queues the volumes and waits until each is done or failed, and its post actions ended.
    bool offload(const std::vector<std::shared_ptr<QVVolume>>& volumes);
    QString workPath(const QString& name) const { return work_.filePath(name); }

    std::list<FaultyFileLayer> layers_;
    QTemporaryDir work_;
    SettingsStore settings_;
    RecordingAppView view_;
    RecordingNotifier notifier_;
    TestServices services_{notifier_};
    std::unique_ptr<AppController> controller_;
};
