// Disk mode on a real exFAT card: read-only images, one per destination, whose digest is the
// device's; an image written damaged failing its check; a card pulled while it is read.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QFile>

#include "AppController.h"
#include "CardTest.h"
#include "FaultyFileLayer.h"
#include "LoopCard.h"
#include "Preferences.h"
#include "QVTaskEx.h"
#include "RecordingAppView.h"
#include "SettingsStore.h"
#include "SystemClock.h"
#include "TestFiles.h"
#include "TestServices.h"

class DiskModeE2E : public CardTest {};

TEST_F(DiskModeE2E, ImagesMatchTheDeviceADamagedOneFailsAndAPulledCardIsInterrupted) {
    const auto cardCard = mountCard("IMG CARD");
    ASSERT_TRUE(cardCard);
    LoopCard& card = *cardCard;
    TestFiles::write(card.mountPoint() + "/DCIM/100EOS5D/MVI_0001.MOV",
                     TestFiles::randomBytes(3 * 1024 * 1024, 7));

    SettingsStore settings(workPath("settings.plist"));
    Preferences(settings).registerAndMigrate();
    settings.setObject(SettingsKey::transferType, PropertyList(qint64(1)));
    settings.setObject(SettingsKey::verifyFileSizes, PropertyList(qint64(0)));
    // The done-marker would change the card after it was imaged.
    settings.setObject(SettingsKey::writeDoneFlag, PropertyList(qint64(0)));
    RecordingAppView view;
    RecordingNotifier notifier;
    FaultyFileLayer layer;
    TestServices services(notifier);
    services.useThisMachine();
    services.files = &layer;
    AppController controller(settings, view, services.bundle());
    const auto volume =
        QVVolume::volumeWithName("IMG CARD", card.mountPoint(), 5, settings, SystemClock::shared());
    controller.setDataArray({volume});
    qsizetype ends = 0;
    // Starts a transfer to the folders; pull, when given, runs once the card is being read.
    const auto transfer = [&](const QStringList& folders, const std::function<void()>& pull = {}) {
        std::vector<DestinationEntry> list;
        for (const QString& folder : folders)
            list.push_back({1, workPath(folder)});
        controller.setDestinationList(list);
        controller.addVolumeToQueue(volume);
        if (pull && waitUntil([&] {
                return volume->status() == QVVolume::Copying &&
                       volume->progressBar().doubleValue > 0;
            }))
            pull();
        ++ends;
        EXPECT_TRUE(waitUntil([&] { return view.events().filter("ended: ").size() == ends; }));
        drainWorkers();
        return view.events().filter("ended: ").value(ends - 1);
    };
    const auto md5 = [](const QString& path) {
        return QVTaskEx::stringFromTask("/usr/bin/md5sum", {path}).section(u' ', 0, 0);
    };
    const auto failureCounts = [&] { return settings.dictionary(SettingsKey::failureCounts); };

    // Each image is checked once it is whole, so none fails on the way.
    EXPECT_EQ(transfer({"one", "two"}), "ended: IMG CARD: Done");
    EXPECT_EQ(volume->status(), QVVolume::Done);
    EXPECT_TRUE(failureCounts().empty());
    EXPECT_LE(volume->progressBar().doubleValue, volume->progressBar().maxValue);
    const QString device = md5(card.device());
    ASSERT_EQ(volume->destinations().size(), 2);
    for (const QString& image : volume->destinations()) {
        struct stat status {};
        ASSERT_EQ(::stat(QFile::encodeName(image).constData(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0444u) << "images are read-only";
        EXPECT_EQ(status.st_size, LoopCard::kDefaultSize);
        EXPECT_EQ(md5(image), device);
    }

    layer.corruptWriteAt(QString(), 1024 * 1024);  // every image written from here on
    EXPECT_EQ(transfer({"damaged"}), "ended: IMG CARD: Error: Disk image failed verification test");
    ASSERT_EQ(failureCounts().size(), 1u);
    EXPECT_EQ(failureCounts().begin()->second.toInteger(), 1);

    layer.slowReads(card.device(), 250);
    EXPECT_EQ(transfer({"pulled"},
                       [&] {
                           ASSERT_TRUE(card.unmount());
                           controller.volumeDidUnmount(card.mountPoint());
                       }),
              "ended: IMG CARD: Card removed during transfer");
    EXPECT_EQ(volume->errorString(), "Card removed during transfer");
    EXPECT_EQ(controller.threadCount(), 0) << "its slot is free again";
    EXPECT_EQ(failureCounts().begin()->second.toInteger(), 1) << "not counted as a failure";
    EXPECT_EQ(view.events().filter("ended: ").size(), ends);
}
