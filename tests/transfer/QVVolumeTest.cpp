// A volume's media usage and the movies found on it.
#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include "FileLayer.h"
#include "QVVolume.h"
#include "SystemClock.h"
#include "TestFiles.h"

namespace {

class QVVolumeTest : public testing::Test {
  protected:
    QTemporaryDir dir_;
};

}  // namespace

TEST_F(QVVolumeTest, MediaUsageLeavesLitterOutAndCachesOnlyANonZeroTotal) {
    const QString root = dir_.filePath("card");
    TestFiles::write(root + "/.Trashes/a", QByteArray(1000, 't'));
    TestFiles::write(root + "/.fseventsd/b", QByteArray(1000, 'f'));
    QVVolume volume(SystemClock::shared());
    volume.setPath(root);
    EXPECT_EQ(volume.totalMediaUsage(FileLayer::posix()), 0u);
    TestFiles::write(root + "/CONTENTS/CLIP/A.MXF", QByteArray(300, 'm'));
    TestFiles::write(root + "/.hidden", QByteArray(20, 'h'));
    EXPECT_EQ(volume.totalMediaUsage(FileLayer::posix()), 320u) << "zero is asked again";
    TestFiles::write(root + "/late.MXF", QByteArray(5, 'l'));
    EXPECT_EQ(volume.totalMediaUsage(FileLayer::posix()), 320u) << "a total is cached";
}

TEST_F(QVVolumeTest, FindsQuickTimeMoviesByExtensionOrTypeCode) {
    const QString root = dir_.filePath("card");
    TestFiles::write(root + "/A/B/CLIP.MOV");
    TestFiles::write(root + "/A/C/other.mov");
    TestFiles::write(root + "/Z/clip.mp4");
    TestFiles::write(root + "/Z/note.txt");
    QVVolume volume(SystemClock::shared());
    volume.setPath(root);
    volume.checkForQuickTimeMovies(FileLayer::posix());
    EXPECT_TRUE(volume.hasQTMovies());
    EXPECT_EQ(QVVolume::quickTimeMoviesInFolder(FileLayer::posix(), root, 1),
              QStringList({root + "/A/B/CLIP.MOV"}));

    unsigned char finderInfo[32] = {'M', 'o', 'o', 'V'};
    if (::setxattr(QFile::encodeName(root + "/Z/clip.mp4").constData(), "user.com.apple.FinderInfo",
                   finderInfo, sizeof finderInfo, 0) != 0)
        GTEST_SKIP() << "no user extended attributes here";
    EXPECT_EQ(QVVolume::quickTimeMoviesInFolder(FileLayer::posix(), root),
              QStringList({root + "/A/B/CLIP.MOV", root + "/A/C/other.mov", root + "/Z/clip.mp4"}));

    volume.populateQuickTimeMovies(FileLayer::posix());
    volume.setHasQTMovies(true);
    EXPECT_EQ(volume.totalMediaUsage(FileLayer::posix()), 3u) << "only the movies count";
}
