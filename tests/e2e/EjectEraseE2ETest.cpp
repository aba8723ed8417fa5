// Ejecting and erasing real exFAT cards on loop devices of their own.

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <memory>

#include "CardTest.h"
#include "LoopCard.h"
#include "MountTable.h"
#include "QVTaskEx.h"
#include "VolumeEjector.h"
#include "VolumeEraser.h"

namespace {

class EjectEraseE2ETest : public CardTest {};

bool isMounted(const LoopCard& card) {
    const std::optional<MountEntry> entry = MountTable::entryForMountPoint(card.mountPoint());
    return entry && entry->source == card.device();
}

QString blkidValue(const QString& tag, const QString& device) {
    return QVTaskEx::stringFromTask(LoopCard::findTool(QStringLiteral("blkid")),
                                    {QStringLiteral("-p"), QStringLiteral("-s"), tag,
                                     QStringLiteral("-o"), QStringLiteral("value"), device})
        .trimmed();
}

}  // namespace

TEST_F(EjectEraseE2ETest, EjectUnmountsAndDetachesTheLoopDevice) {
    const auto card = mountCard(QStringLiteral("EJECT ME"));
    ASSERT_TRUE(card);
    QFile clip(card->mountPoint() + QStringLiteral("/clip.mov"));
    ASSERT_TRUE(clip.open(QIODevice::WriteOnly));
    ASSERT_EQ(clip.write(QByteArray(1024 * 1024, 'c')), 1024 * 1024);
    clip.close();
    const QString backing =
        QStringLiteral("/sys/block/%1/loop/backing_file").arg(QFileInfo(card->device()).fileName());
    ASSERT_TRUE(QFile::exists(backing));

    QString error;
    ASSERT_TRUE(VolumeEjector::unmountAndEject(card->mountPoint(), &error)) << error.toStdString();
    EXPECT_FALSE(isMounted(*card));
    EXPECT_FALSE(QFile::exists(backing));
    const QString attached = QVTaskEx::stringFromTask(LoopCard::findTool(QStringLiteral("losetup")),
                                                      {QStringLiteral("-j"), card->imagePath()});
    EXPECT_TRUE(attached.trimmed().isEmpty()) << attached.toStdString();

    // Nothing is mounted there any more, so a second eject is refused.
    EXPECT_FALSE(VolumeEjector::unmountAndEject(card->mountPoint(), &error));
}

TEST_F(EjectEraseE2ETest, EraseReformatsTheCardButNeverADestinationsDevice) {
    if (LoopCard::findTool(QStringLiteral("mkfs.fat")).isEmpty() ||
        LoopCard::findTool(QStringLiteral("blkid")).isEmpty()) {
        GTEST_SKIP() << "mkfs.fat or blkid is not installed";
    }
    const auto card = mountCard(QStringLiteral("ERASE ME"));
    ASSERT_TRUE(card);
    ASSERT_TRUE(QDir().mkpath(card->mountPoint() + QStringLiteral("/Offload")));
    QTemporaryDir elsewhere;
    ASSERT_TRUE(elsewhere.isValid());

    // A destination on the card, even one not made yet, protects it.
    QString error;
    const QString destination = card->mountPoint() + QStringLiteral("/Offload/Day 1");
    EXPECT_FALSE(VolumeEraser::eraseAsFat(card->mountPoint(), QStringLiteral("x"),
                                          {elsewhere.path(), destination}, &error));
    EXPECT_TRUE(error.contains(destination)) << error.toStdString();
    EXPECT_TRUE(isMounted(*card));
    EXPECT_EQ(blkidValue(QStringLiteral("TYPE"), card->device()), QStringLiteral("exfat"));

    error.clear();
    ASSERT_TRUE(VolumeEraser::eraseAsFat(card->mountPoint(), QStringLiteral("card: 2*"),
                                         {elsewhere.path()}, &error))
        << error.toStdString();
    EXPECT_EQ(blkidValue(QStringLiteral("TYPE"), card->device()), QStringLiteral("vfat"));
    EXPECT_EQ(blkidValue(QStringLiteral("LABEL"), card->device()), QStringLiteral("CARD 2"));
    // Mounted again where the kernel can read FAT; said so where it can't.
    if (error.isEmpty()) {
        const std::optional<MountEntry> entry = MountTable::entryForMountPoint(card->mountPoint());
        ASSERT_TRUE(entry);
        EXPECT_EQ(entry->source, card->device());
        EXPECT_EQ(entry->fsType, QStringLiteral("vfat"));
        EXPECT_FALSE(QFile::exists(card->mountPoint() + QStringLiteral("/Offload")));
    } else {
        EXPECT_TRUE(error.contains(QStringLiteral("mounted again"))) << error.toStdString();
        EXPECT_FALSE(isMounted(*card));
    }
}
