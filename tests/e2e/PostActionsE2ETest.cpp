// Everything after a verified transfer of a real card, with every step on, where it meets the
// real system: the card is marked and ejected, the copies carry manifests, the movies their tags
// (with the media untouched, by the real tool), and the disk image every file. The order of the
// steps and what the desktop hears are the unit tests'.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>

#include "AppController.h"
#include "CardTest.h"
#include "CardsweepVolumeChecker.h"
#include "MetadataField.h"
#include "MountTable.h"
#include "PosixProcessRunner.h"
#include "Preferences.h"
#include "QVTaskEx.h"
#include "RecordingAppView.h"
#include "SettingsStore.h"
#include "SystemClock.h"
#include "SystemTool.h"
#include "TestFiles.h"
#include "TestMovies.h"
#include "TestServices.h"

class PostActionsE2E : public CardTest {};

TEST_F(PostActionsE2E, EveryStepLeavesItsResultAndTheCardIsEjected) {
    auto movies = TestMovies::create();
    if (!movies)
        GTEST_SKIP() << "ffmpeg and ffprobe are needed to make the card's movie";
    if (SystemTool::find("mksquashfs").isEmpty() || SystemTool::find("unsquashfs").isEmpty())
        GTEST_SKIP() << "squashfs-tools is needed for the image archive";
    auto card = mountCard("EOS_DIGITAL");
    ASSERT_TRUE(card);
    const QString original = movies->file("MVI_0001.MOV");
    ASSERT_TRUE(movies->make(original, "25", "1"));
    const QString onCard = card->mountPoint() + "/DCIM/100EOS5D/MVI_0001.MOV";
    ASSERT_TRUE(QDir().mkpath(QFileInfo(onCard).path()));
    ASSERT_TRUE(QFile::copy(original, onCard));
    TestFiles::write(card->mountPoint() + "/DCIM/100EOS5D/IMG_0002.JPG", "still");

    SettingsStore settings(workPath("settings.plist"));
    Preferences(settings).registerAndMigrate();
    for (const Setting<IntegerSwitch>* key : SettingsKey::postActionSwitches)
        settings.set(*key, true);
    settings.setObject(SettingsKey::actionArchiveType, PropertyList(qint64(0)));
    // Day and Reel go into the movies under keys of their own.
    auto fields = MetadataField::listFrom(settings.object(SettingsKey::metadata));
    ASSERT_GE(fields.size(), 2u);
    fields[0].qtMetadataKey = "com.cardsweep.day";
    fields[1].qtMetadataKey = "com.cardsweep.reel";
    settings.setObject(SettingsKey::metadata, MetadataField::toArray(fields));
    const std::vector<DestinationEntry> destinations = {{1, workPath("dest one")},
                                                        {1, workPath("dest two")}};
    Preferences(settings).setDestinationList(destinations);

    RecordingAppView view;
    RecordingNotifier notifier;
    TestServices services(notifier);
    services.useThisMachine();
    PosixProcessRunner processes;
    services.processes = &processes;
    AppController controller(settings, view, services.bundle());
    controller.setDestinationList(destinations);
    const int type =
        CardsweepVolumeChecker::verifyVolumeType(FileLayer::posix(), card->mountPoint());
    const auto volume = QVVolume::volumeWithName("EOS_DIGITAL", card->mountPoint(), type, settings,
                                                 SystemClock::shared());
    controller.setDataArray({volume});
    // The marker is looked for while the card is still there: it goes at the end.
    bool markerOnCard = false;
    view.setPostActionHook([&](const QString& what) {
        if (what.startsWith("Done marker: "))
            markerOnCard = QFileInfo(card->mountPoint() + "/.cardsweep").isFile();
    });
    controller.addVolumeToQueue(volume);
    ASSERT_TRUE(waitUntil([&] { return !view.events().filter("ended: ").isEmpty(); }));
    drainWorkers();

    EXPECT_EQ(view.events().filter("ended: "), QStringList{"ended: EOS_DIGITAL: Done"});
    EXPECT_TRUE(markerOnCard);
    EXPECT_FALSE(MountTable::entryForMountPoint(card->mountPoint())) << "the card is ejected";

    const QStringList copies = volume->destinations();
    ASSERT_EQ(copies.size(), 2);
    for (const QString& copy : copies) {
        EXPECT_TRUE(QFileInfo(copy + "/checksums.txt").isFile()) << copy.toStdString();
        EXPECT_FALSE(QDir(copy + "/ascmhl").isEmpty()) << copy.toStdString();
        const QString tagged = copy + "/DCIM/100EOS5D/MVI_0001.MOV";
        const QJsonObject tags = movies->tags(tagged);
        // The values the card was given when it was queued.
        EXPECT_EQ(tags["com.cardsweep.day"].toString(),
                  volume->metadata().at(fields[0].identifier()))
            << tagged.toStdString();
        EXPECT_EQ(tags["com.cardsweep.reel"].toString(),
                  volume->metadata().at(fields[1].identifier()));
        EXPECT_EQ(movies->payloadDigest(tagged), movies->payloadDigest(original));
    }

    const QString first = copies[0];
    const QString imageName = "EOS_DIGITAL " + QFileInfo(first).fileName() + " Archive.dmg";
    const QString listing =
        QVTaskEx::stringFromTask(SystemTool::find("unsquashfs"), {"-l", first + "/" + imageName});
    const auto files = TestFiles::tree(first);
    EXPECT_TRUE(files.count("/DCIM/100EOS5D/MVI_0001.MOV"));
    for (const auto& [file, bytes] : files)
        EXPECT_EQ(listing.contains("squashfs-root" + file + "\n"), file != "/" + imageName)
            << file.toStdString();
}
