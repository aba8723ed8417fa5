// Labels for erased cards, and the refusals that keep erase and eject away from anything
// that isn't a mounted card.

#include <gtest/gtest.h>

#include <QTemporaryDir>

#include "VolumeEjector.h"
#include "VolumeEraser.h"

TEST(VolumeEraserTest, FatLabelsAreUpperCaseShortAndAcceptedByMkfs) {
    EXPECT_EQ(VolumeEraser::fatLabel(QStringLiteral("card 1")), QStringLiteral("CARD 1"));
    EXPECT_EQ(VolumeEraser::fatLabel(QStringLiteral("a001 camera card")),
              QStringLiteral("A001 CAMERA"));
    EXPECT_EQ(VolumeEraser::fatLabel(QStringLiteral("a*b?c/d\\e\"f:g<h>i|j")),
              QStringLiteral("ABCDEFGHIJ"));
    // Refused characters don't count towards the eleven.
    EXPECT_EQ(VolumeEraser::fatLabel(QStringLiteral("**********day.1,2;3+4=5[6]789")),
              QStringLiteral("DAY12345678"));
    EXPECT_EQ(VolumeEraser::fatLabel(QStringLiteral("cam\tb\nroll\u00e9\u30ab")),
              QStringLiteral("CAMBROLL"));
    EXPECT_EQ(VolumeEraser::fatLabel(QStringLiteral("-n $(x)")), QStringLiteral("-N $(X)"));
    EXPECT_EQ(VolumeEraser::fatLabel(QStringLiteral("*?")), QString());
}

TEST(VolumeEraserTest, RefusesWhatIsNotAMountedCard) {
    const QTemporaryDir plain;
    ASSERT_TRUE(plain.isValid());
    const QStringList none;
    for (const QString& path : {plain.path(), plain.filePath(QStringLiteral("missing")),
                                QStringLiteral("/"), QStringLiteral("/proc"), QString()}) {
        QString error;
        EXPECT_FALSE(VolumeEraser::eraseAsFat(path, QStringLiteral("CARD"), none, &error))
            << path.toStdString();
        EXPECT_FALSE(error.isEmpty()) << path.toStdString();
    }
    // "/" is refused whichever way it is mounted, also when it is given as a destination.
    QString error;
    EXPECT_FALSE(VolumeEraser::eraseAsFat(QStringLiteral("/"), QStringLiteral("CARD"),
                                          {plain.path()}, &error));
    EXPECT_FALSE(error.isEmpty());

    for (const QString& path : {plain.path(), QStringLiteral("/proc")}) {
        QString ejectError;
        EXPECT_FALSE(VolumeEjector::unmountAndEject(path, &ejectError)) << path.toStdString();
        EXPECT_FALSE(ejectError.isEmpty());
    }
    EXPECT_TRUE(plain.isValid());
}
