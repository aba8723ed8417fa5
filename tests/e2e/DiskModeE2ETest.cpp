// Disk mode on a real exFAT card: a read-only image whose digest is the device's, and a
// tampered image failing its check.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QFile>
#include <QTemporaryDir>

#include "AppController.h"
#include "CardTest.h"
#include "LoopCard.h"
#include "Preferences.h"
#include "QVTaskEx.h"
#include "RecordingAppView.h"
#include "SettingsStore.h"
#include "TestFiles.h"

class DiskModeE2E : public CardTest {};

TEST_F(DiskModeE2E, ImageMatchesTheDeviceAndATamperedImageFails) {
    const auto cardCard = mountCard("IMG CARD");
    ASSERT_TRUE(cardCard);
    LoopCard& card = *cardCard;
    TestFiles::write(card.mountPoint() + "/DCIM/100EOS5D/MVI_0001.MOV",
                     TestFiles::randomBytes(3 * 1024 * 1024, 7));
    ::sync();

    SettingsStore settings(workPath("settings.plist"));
    Preferences(settings).registerAndMigrate();
    settings.setObject(SettingsKey::transferType, PropertyList(qint64(1)));
    settings.setObject(SettingsKey::verifyFileSizes, PropertyList(qint64(0)));
    // The done-marker would change the card after it was imaged.
    settings.setObject(SettingsKey::writeDoneFlag, PropertyList(qint64(0)));
    RecordingAppView view;
    RecordingNotifier notifier;
    {
        AppController controller(settings, view, notifier);
        controller.setDestinationList({{1, workPath("dest")}});
        const auto volume = QVVolume::volumeWithName("IMG CARD", card.mountPoint(), 5, settings);
        controller.setDataArray({volume});
        controller.addVolumeToQueue(volume);
        ASSERT_TRUE(waitUntil([&] {
            return volume->status() == QVVolume::Done || volume->status() == QVVolume::Failed;
        }));
        drainWorkers();
        ASSERT_EQ(volume->status(), QVVolume::Done) << volume->statusText().toStdString();

        const QString image = volume->destinations().value(0);
        struct stat status {};
        ASSERT_EQ(::stat(QFile::encodeName(image).constData(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0444u) << "images are read-only";
        EXPECT_EQ(status.st_size, LoopCard::kDefaultSize);
        const auto digest = [](const QString& path) {
            return QVTaskEx::stringFromTask("/usr/bin/md5sum", {path}).section(u' ', 0, 0);
        };
        EXPECT_EQ(digest(image), digest(card.device()));

        ::chmod(QFile::encodeName(image).constData(), 0644);
        QFile file(image);
        ASSERT_TRUE(file.open(QIODevice::ReadWrite));
        file.seek(1024 * 1024);
        file.write("tampered");
        file.close();
        controller.verifyVolume(volume);
        drainWorkers();
        EXPECT_EQ(volume->statusText(), "Error: Disk image failed verification test");
    }
}
