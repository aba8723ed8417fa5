#include "OffloadFixture.h"

#include "Preferences.h"
#include "TestFiles.h"

OffloadFixture::OffloadFixture() : settings_(work_.filePath("settings.plist")) {
    Preferences(settings_).registerAndMigrate();
    settings_.setObject(SettingsKey::concurrentThreads, PropertyList(qint64(2)));
    settings_.setObject(SettingsKey::writeDoneFlag, PropertyList(qint64(1)));
}

void OffloadFixture::TearDown() {
    drainWorkers();
}

void OffloadFixture::makeController(FileLayer& layer) {
    services_.files = &layer;
    controller_ = std::make_unique<AppController>(settings_, view_, services_.bundle());
    controller_->setDestinationList(
        {{1, work_.filePath("dest one")}, {1, work_.filePath("dest two")}});
}

std::shared_ptr<QVVolume> OffloadFixture::card(const QString& name) {
    const QString root = work_.filePath("cards/" + name);
    TestFiles::write(root + "/CONTENTS/CLIP/A001C001.MXF", QByteArray(300000, 'a'));
    TestFiles::write(root + "/CONTENTS/CLIP/A001C002.MXF", QByteArray(5 * 1024 * 1024 + 9, 'b'));
    TestFiles::write(root + "/CONTENTS/CLIP/.hidden-inside", "kept");
    TestFiles::write(root + "/CONTENTS/PROXY/A001C001.MP4", "proxy");
    TestFiles::write(root + "/.Trashes/junk", "skipped");
    TestFiles::write(root + "/.DS_Store", "skipped");
    return listCard(name);
}

std::shared_ptr<QVVolume> OffloadFixture::listCard(const QString& name) {
    return QVVolume::volumeWithName(name, work_.filePath("cards/" + name), 0, settings_,
                                    services_.clock);
}

bool OffloadFixture::offload(const std::vector<std::shared_ptr<QVVolume>>& volumes) {
    controller_->setDataArray(volumes);
    for (const auto& volume : volumes)
        controller_->addVolumeToQueue(volume);
    const bool ended = waitUntil([&] {
        for (const auto& volume : volumes) {
            const VolumeStatus status = volume->status();
            if (status != QVVolume::Done && status != QVVolume::Failed)
                return false;
        }
        return true;
    });
    drainWorkers();  // past the post actions, which write the manifest once more
    return ended;
}
