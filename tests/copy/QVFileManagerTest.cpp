// File utilities the transfers use: unique names, wildcard paths, folder sizes,
// copies and moves that never overwrite, folders on drives that are gone, trash, and a layer's
// faults reaching them.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <thread>

#include "FakeClock.h"
#include "FakeLocalPaths.h"
#include "FakeProcessRunner.h"
#include "FaultyFileLayer.h"
#include "FileLayer.h"
#include "PosixFileLayer.h"
#include "QVAuthorization.h"
#include "QVFileManager.h"
#include "QVLocalPaths.h"
#include "TempHome.h"
#include "TestFiles.h"

namespace {

// The file manager over the real file system.
QVFileManager files(FileLayer::posix());

QString linkTarget(const QString& path) {
    char target[4096] = {};
    const ssize_t n = ::readlink(QFile::encodeName(path).constData(), target, sizeof target - 1);
    return n < 0 ? QString() : QFile::decodeName(QByteArray(target, n));
}

// Every entry below root, sorted: its relative path and its bytes or link target.
QStringList tree(const QString& root) {
    QStringList entries;
    QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QFileInfo info(it.next());
        entries << QDir(root).relativeFilePath(info.filePath()) + u'|' +
                       (info.isSymLink()
                            ? "->" + linkTarget(info.filePath())
                            : QString::fromLatin1(TestFiles::read(info.filePath()).toHex()));
    }
    entries.sort();
    return entries;
}

}  // namespace

TEST(QVFileManager, UniqueFilenamesCountUpFromTwo) {
    QTemporaryDir dir;
    const QString clip = dir.filePath("clip.mov");
    EXPECT_EQ(files.uniqueFilename(clip), clip);
    TestFiles::write(clip, "a");
    EXPECT_EQ(files.uniqueFilename(clip), dir.filePath("clip 2.mov"));
    TestFiles::write(dir.filePath("clip 2.mov"), "b");
    EXPECT_EQ(files.uniqueFilename(clip), dir.filePath("clip 3.mov"));

    QDir(dir.path()).mkdir("A001");
    EXPECT_EQ(files.uniqueFilename(dir.filePath("A001")), dir.filePath("A001 2"));
    TestFiles::write(dir.filePath(".hidden"), "c");
    EXPECT_EQ(files.uniqueFilename(dir.filePath(".hidden")), dir.filePath(".hidden 2"));
    // A dangling link still occupies the name.
    ASSERT_EQ(::symlink("nowhere", QFile::encodeName(dir.filePath("link.txt")).constData()), 0);
    EXPECT_EQ(files.uniqueFilename(dir.filePath("link.txt")), dir.filePath("link 2.txt"));
}

TEST(QVFileManager, WildcardsMatchAcrossSeveralComponents) {
    QTemporaryDir dir;
    const QString base = dir.path();
    TestFiles::write(base + "/CONTENTS/CLIP/A001C001.MXF", "1");
    TestFiles::write(base + "/CONTENTS/CLIP/A001C002.MXF", "2");
    TestFiles::write(base + "/CONTENTS/CLIP/A001C002.XML", "x");
    TestFiles::write(base + "/CONTENTS/PROXY/A001C001.MXF", "p");
    TestFiles::write(base + "/OTHER/CLIP/B001C001.MXF", "o");

    EXPECT_EQ(
        files.filesMatchingWildcardPath("CONTENTS/*/A001C00?*.MXF", base),
        QStringList({base + "/CONTENTS/CLIP/A001C001.MXF", base + "/CONTENTS/CLIP/A001C002.MXF",
                     base + "/CONTENTS/PROXY/A001C001.MXF"}));
    EXPECT_EQ(files.filesMatchingWildcardPath("*/CLIP/*.XML", base),
              QStringList({base + "/CONTENTS/CLIP/A001C002.XML"}));
    // "?" is a wildcard only beside a "*"; matching is case-sensitive.
    EXPECT_TRUE(files.filesMatchingWildcardPath("*/CLIP/A001C00?.MXF", base).isEmpty());
    EXPECT_TRUE(files.filesMatchingWildcardPath("*/CLIP/*.mxf", base).isEmpty());
    // A leading "/" starts again from the base path.
    EXPECT_EQ(files.decodeWildcardPath("/OTHER/*/B*", base), base + "/OTHER/CLIP/B001C001.MXF");
}

TEST(QVFileManager, FolderEmptinessAndRecursiveSize) {
    QTemporaryDir dir;
    const QString card = dir.filePath("card");
    EXPECT_TRUE(files.isFolderEmpty(card)) << "a folder that can't be listed is empty";
    TestFiles::write(card + "/.DS_Store", "junk");
    TestFiles::write(card + "/Icon\r", "");
    QDir().mkpath(card + "/CONTENTS/CLIP");
    EXPECT_TRUE(files.isFolderEmpty(card));
    TestFiles::write(card + "/CONTENTS/CLIP/.hidden", "h");
    EXPECT_FALSE(files.isFolderEmpty(card));

    TestFiles::write(card + "/CONTENTS/a.bin", QByteArray(1000, 'a'));
    ASSERT_EQ(::symlink("a.bin", QFile::encodeName(card + "/CONTENTS/link").constData()), 0);
    EXPECT_EQ(files.fileSize(card), 4u + 0u + 1u + 1000u + 5u);
    EXPECT_EQ(files.fileSize(card + "/CONTENTS/a.bin"), 1000u);
    EXPECT_EQ(files.fileSize(dir.filePath("missing")), 0u);
}

TEST(QVFileManager, CopyKeepsTreeBytesModesAndTimesAndNeverOverwrites) {
    QTemporaryDir dir;
    const QString source = dir.filePath("A001 'card' $(x)");
    TestFiles::write(source + "/CLIP/a.mov", QByteArray(3 * 1024 * 1024 + 7, 'm'));
    TestFiles::write(source + "/CLIP/empty", "");
    QDir().mkpath(source + "/EMPTYDIR");
    ASSERT_EQ(::symlink("CLIP/a.mov", QFile::encodeName(source + "/shortcut").constData()), 0);
    ::chmod(QFile::encodeName(source + "/CLIP/empty").constData(), 0640);
    const QDateTime old = QDateTime::fromSecsSinceEpoch(1'500'000'000);
    ASSERT_TRUE(files.setModificationDate(old, source + "/CLIP/a.mov"));

    const QString copy = dir.filePath("dest/copy");
    QDir().mkpath(dir.filePath("dest"));
    ASSERT_TRUE(files.copyFile(source, copy));
    EXPECT_EQ(tree(copy), tree(source));
    EXPECT_EQ(QFileInfo(copy + "/CLIP/a.mov").lastModified(), old);
    EXPECT_EQ(QFileInfo(copy + "/CLIP/empty").permissions(),
              QFileInfo(source + "/CLIP/empty").permissions());

    TestFiles::write(dir.filePath("other"), "keep me");
    EXPECT_FALSE(files.copyFile(source + "/CLIP/a.mov", dir.filePath("other"), false));
    EXPECT_EQ(TestFiles::read(dir.filePath("other")), "keep me");
    EXPECT_FALSE(files.copyFile(QString(), copy));
    EXPECT_FALSE(files.copyFile(source, QString()));
}

TEST(QVFileManager, MovesNeverReplaceAndCaseOnlyMovesSucceed) {
    QTemporaryDir dir;
    TestFiles::write(dir.filePath("a"), "a");
    TestFiles::write(dir.filePath("b"), "b");
    EXPECT_FALSE(files.moveFile(dir.filePath("a"), dir.filePath("b"), false));
    EXPECT_EQ(TestFiles::read(dir.filePath("a")), "a");
    EXPECT_EQ(TestFiles::read(dir.filePath("b")), "b");

    // Both names on a case-sensitive disk: refused, and the file keeps its own name.
    TestFiles::write(dir.filePath("Clip.MOV"), "clip");
    TestFiles::write(dir.filePath("clip.mov"), "other");
    EXPECT_FALSE(files.moveFile(dir.filePath("Clip.MOV"), dir.filePath("clip.mov")));
    EXPECT_EQ(TestFiles::read(dir.filePath("Clip.MOV")), "clip");
    EXPECT_EQ(TestFiles::read(dir.filePath("clip.mov")), "other");
    ASSERT_TRUE(QFile::remove(dir.filePath("clip.mov")));
    ASSERT_TRUE(files.moveFile(dir.filePath("Clip.MOV"), dir.filePath("clip.mov")));
    EXPECT_EQ(QDir(dir.path()).entryList({"*.mov", "*.MOV"}), QStringList({"clip.mov"}));
    EXPECT_EQ(TestFiles::read(dir.filePath("clip.mov")), "clip");

    ASSERT_TRUE(files.createEmptyFile(dir.filePath(".cardsweep")));
    EXPECT_EQ(QFileInfo(dir.filePath(".cardsweep")).size(), 0);
    EXPECT_FALSE(files.createEmptyFile(dir.filePath("b")));
    EXPECT_EQ(TestFiles::read(dir.filePath("b")), "b");
}

TEST(QVFileManager, CreateDirectoryRefusesADriveThatIsNotThere) {
    TempHome home;
    const QString root = home.file("media");
    QDir().mkpath(root);
    home.setEnv("CARDSWEEP_MEDIA_ROOTS", QFile::encodeName(root));

    EXPECT_FALSE(files.createDirectory(root + "/CARD/Transferred Media/A001"));
    EXPECT_TRUE(QDir(root).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).isEmpty());
    EXPECT_FALSE(files.isVolumeMountedForPath(root + "/CARD/x"));

    // A leftover folder under a system media root is not a mounted drive.
    EXPECT_FALSE(files.isDriveMountedForPath("/media/cardsweep-not-mounted/DCIM"));
    EXPECT_FALSE(files.createDirectory("/media/cardsweep-not-mounted/DCIM"));
    EXPECT_FALSE(QFileInfo::exists("/media/cardsweep-not-mounted"));

    QDir().mkpath(root + "/CARD");
    EXPECT_TRUE(files.createDirectory(root + "/CARD/Transferred Media/A001"));
    EXPECT_TRUE(files.createDirectory(root + "/CARD/Transferred Media/A001"))
        << "an existing folder is fine";
    EXPECT_TRUE(files.isVolumeMountedForPath(home.file("elsewhere/x")));
    EXPECT_EQ(files.volumeMountPointForPath(root + "/CARD/x"), QString()) << "a plain folder";
    EXPECT_EQ(files.volumeMountPointForPath(home.file("x")), "/");
}

// The forms that wait for the file system to show the change, from a worker thread.
TEST(QVFileManager, TimeOutFormsWorkFromAWorkerThreadAndTrashTakesFilesOfAType) {
    QTemporaryDir dir;
    const QString folder = dir.filePath("made/here");
    const QString file = TestFiles::write(dir.filePath("file.txt"), "payload");
    std::thread([&] {
        EXPECT_TRUE(files.createDirectory(folder, 2));
        EXPECT_TRUE(files.createDirectory(dir.filePath("again"), 2) &&
                    files.copyContentsOfDirectory(dir.filePath("made"), dir.filePath("again"), 2));
        EXPECT_TRUE(files.moveFile(file, folder + "/moved.txt", 2));
        EXPECT_TRUE(files.trashFile(folder + "/moved.txt", 2));
    }).join();
    EXPECT_TRUE(QFileInfo::exists(dir.filePath("again/here")));
    EXPECT_TRUE(QFileInfo::exists(QVLocalPaths::trashDirectory() + "/files/moved.txt"));

    EXPECT_TRUE(files.trashFile(dir.filePath("never existed")));
    TestFiles::write(dir.filePath("cards/x/A.MOV"), "1");
    TestFiles::write(dir.filePath("cards/y/b.mov"), "2");
    TestFiles::write(dir.filePath("cards/y/c.mxf"), "3");
    EXPECT_EQ(files.trashFilesOfType("mov", dir.filePath("cards")).size(), 2);
    EXPECT_TRUE(QFileInfo::exists(dir.filePath("cards/y/c.mxf")));
}

// The file manager works through the layer it is given, so a failing disk reaches it too.
TEST(QVFileManager, FileOperationsMeetTheFaultsOfTheirLayer) {
    QTemporaryDir dir;
    FaultyFileLayer layer;
    QVFileManager faulty(layer);
    TestFiles::write(dir.filePath("CARD/CLIP/A.MXF"), "media");
    layer.vanish(dir.filePath("CARD/CLIP/A.MXF"));
    EXPECT_FALSE(faulty.fileExistsAtPath(dir.filePath("CARD/CLIP/A.MXF")));
    EXPECT_TRUE(files.fileExistsAtPath(dir.filePath("CARD/CLIP/A.MXF")));

    layer.failCreationsUnder(dir.filePath("full"));
    EXPECT_FALSE(faulty.createDirectory(dir.filePath("full/Offload/CARD")));
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("full/Offload"))) << "nothing made on the way";
}

namespace {

// A disk that refuses to remove anything, as a folder the user has no rights over does.
class RefusingRemovals : public PosixFileLayer {
  public:
    int removeFile(const QByteArray&) override {
        errno = EACCES;
        return -1;
    }
};

}  // namespace

TEST(QVFileManagerTest, ARemovalThatFailsIsTakenOverByTheRunnerOnlyWhenRightsMayBeAsked) {
    QTemporaryDir work;
    const QString clip = work.filePath("A001/CLIP.MOV");
    TestFiles::write(clip, "root's");
    RefusingRemovals disk;
    FakeProcessRunner processes;
    processes.setRunsAsRoot(false);  // the runner, started without a dialog, does the work
    processes.passThrough(CARDSWEEP_AUTH_TOOL);
    FakeLocalPaths paths;
    QVAuthorization::Approval direct;
    direct.dialog = {};
    direct.runner = CARDSWEEP_AUTH_TOOL;

    const FakeClock clock;
    QVAuthorization headless(processes, paths, clock, false, direct);
    EXPECT_FALSE(QVFileManager(disk, &headless).removeFile(clip));
    EXPECT_TRUE(QFileInfo::exists(clip)) << "no rights to ask for: the failure stands";
    QVAuthorization asking(processes, paths, clock, true, direct);
    EXPECT_FALSE(QVFileManager(disk, &asking).removeFile(clip, false)) << "not asked to";
    EXPECT_TRUE(QFileInfo::exists(clip));
    EXPECT_TRUE(QVFileManager(disk, &asking).removeFile(clip));
    EXPECT_FALSE(QFileInfo::exists(clip)) << "removed through the runner";
}
