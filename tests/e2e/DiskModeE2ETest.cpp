// Disk mode on a real exFAT card: read-only images of the card's whole device, one per
// destination, whose digest is the device's. (A damaged image and a pulled card are the
// controller tests', over an image file standing in for the device.)
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QFile>

#include "AppController.h"
#include "CardTest.h"
#include "Preferences.h"
#include "QVTaskEx.h"
#include "RecordingAppView.h"
#include "SettingsStore.h"
#include "SystemClock.h"
#include "TestFiles.h"
#include "TestMount.h"
#include "TestServices.h"

class DiskModeE2E : public CardTest {};

TEST_F(DiskModeE2E, ImagesMatchTheDevice) {
    const auto cardCard = mountCard("IMG CARD");
    ASSERT_TRUE(cardCard);
    TestMount& card = *cardCard;
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
    TestServices services(notifier);
    services.useThisMachine();
    AppController controller(settings, view, services.bundle());
    const auto volume =
        QVVolume::volumeWithName("IMG CARD", card.mountPoint(), 5, settings, SystemClock::shared());
    controller.setDataArray({volume});
    controller.setDestinationList({{1, workPath("one")}, {1, workPath("two")}});
    controller.addVolumeToQueue(volume);
    // Each image is checked once it is whole, so none fails on the way.
    ASSERT_TRUE(waitUntil([&] { return !view.events().filter("ended: ").isEmpty(); }));
    drainWorkers();
    EXPECT_EQ(view.events().filter("ended: "), QStringList("ended: IMG CARD: Done"));
    EXPECT_LE(volume->progressBar().doubleValue, volume->progressBar().maxValue);
    const auto md5 = [](const QString& path) {
        return QVTaskEx::stringFromTask("/usr/bin/md5sum", {path}).section(u' ', 0, 0);
    };
    const QString device = md5(card.device());
    ASSERT_EQ(volume->destinations().size(), 2);
    for (const QString& image : volume->destinations()) {
        struct stat status {};
        ASSERT_EQ(::stat(QFile::encodeName(image).constData(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0444u) << "images are read-only";
        EXPECT_EQ(status.st_size, TestMount::kCardSize);
        EXPECT_EQ(md5(image), device);
    }
}
