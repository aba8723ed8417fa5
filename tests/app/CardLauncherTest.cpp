// The helper's decision on each mount: a removable card the recogniser names starts the
// desktop program with it; anything else, or an ignored card, starts nothing.
#include <gtest/gtest.h>

#include <QTemporaryDir>

#include "CardLauncher.h"
#include "FakeMountService.h"
#include "FakeProcessRunner.h"
#include "FileLayer.h"
#include "Preferences.h"
#include "SettingsStore.h"
#include "TestFiles.h"

TEST(CardLauncherTest, OnlyARemovableRecognisedCardNotIgnoredStartsTheProgram) {
    QTemporaryDir work;
    SettingsStore settings(work.filePath("settings.plist"));
    Preferences(settings).registerAndMigrate();
    FakeMountService mounts;
    FakeProcessRunner processes;
    CardLauncher launcher(mounts, FileLayer::posix(), settings, processes, "/opt/cardsweep");
    launcher.start();
    EXPECT_TRUE(mounts.isWatching());

    const auto card = [&](const QString& name, const QString& device, bool removable) {
        const QString root = work.filePath(name);
        TestFiles::write(root + "/DCIM/100EOS5D/MVI_0001.MOV", "clip");
        mounts.setRemovable(device, removable);
        return MountEntry{root, device, "exfat", "rw", false};
    };
    const MountEntry eos = card("EOS_DIGITAL", "/dev/sdb1", true);
    mounts.mount(eos);
    mounts.mount(card("BACKUP", "/dev/sdc1", false));  // a fixed disk, card layout or not
    TestFiles::write(work.filePath("NOTES/readme.txt"), "text");
    mounts.setRemovable("/dev/sdd1");
    mounts.mount(MountEntry{work.filePath("NOTES"), "/dev/sdd1", "vfat", "rw", false});
    // Ignored in the desktop program after the helper started: read afresh.
    const MountEntry spare = card("SPARE", "/dev/sde1", true);
    SettingsStore(work.filePath("settings.plist"))
        .setObject(SettingsKey::ignoredVolumes, PropertyList(QStringList{"SPARE"}));
    mounts.mount(spare);

    EXPECT_EQ(processes.commandLines(),
              QStringList{"/opt/cardsweep -cardsweepVolume " + eos.mountPoint});
    EXPECT_FALSE(processes.calls().front().waited) << "started, not waited for";
}
