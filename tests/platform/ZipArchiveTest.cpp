// Zip archives: trees round-trip byte for byte (modes, times, links, empty folders), another
// reader agrees, and failures leave nothing behind. Extraction is only the tests' own reader:
// no program unpacks an archive.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QDateTime>
#include <QDir>
#include <QTemporaryDir>

#include "QVTaskEx.h"
#include "TestFiles.h"
#include "ZipArchive.h"

namespace {

void writeFile(const QString& path, const QByteArray& data, mode_t mode = 0644) {
    ASSERT_EQ(chmod(QFile::encodeName(TestFiles::write(path, data)).constData(), mode), 0);
}

// Every entry below root as exactTree has it, with its mode and (but for links) its time.
std::map<QByteArray, std::tuple<QByteArray, mode_t, time_t>> snapshot(const QString& root) {
    std::map<QByteArray, std::tuple<QByteArray, mode_t, time_t>> tree;
    for (const auto& [name, content] : TestFiles::exactTree(QFile::encodeName(root))) {
        struct stat info {};
        EXPECT_EQ(lstat((QFile::encodeName(root) + name).constData(), &info), 0);
        tree[name] = {content, info.st_mode, S_ISLNK(info.st_mode) ? 0 : info.st_mtime};
    }
    return tree;
}

QByteArray noise(qsizetype size) {
    return TestFiles::randomBytes(size, 20240611);
}

}  // namespace

TEST(ZipArchiveTest, TreesRoundTripByteForByteAndAnotherReaderAgrees) {
    const QTemporaryDir dir;
    const QString card = dir.filePath("CARD"), out = dir.filePath("out/");
    writeFile(card + "/CLIP/A001C001.mov", noise(5 * 1024 * 1024 + 17));
    writeFile(card + "/CLIP/empty.bin", {});
    writeFile(card + "/CLIP/deep/er/Szene 1 – Ü %.txt", "nested", 0600);
    writeFile(card + "/tools/run.sh", "#!/bin/sh\n", 0755);
    ASSERT_TRUE(QDir(card).mkdir("EMPTY") && QDir(out).mkpath("."));
    ASSERT_TRUE(QFile::link("CLIP/A001C001.mov", card + "/link"));
    QFile old(card + "/CLIP/empty.bin");
    ASSERT_TRUE(old.open(QIODevice::ReadWrite) &&
                old.setFileTime(QDateTime(QDate(2001, 2, 3), QTime(4, 5, 6)),
                                QFileDevice::FileModificationTime));
    ASSERT_EQ(chmod(QFile::encodeName(card + "/tools").constData(), 0750), 0);
    const auto original = snapshot(card);
    ASSERT_EQ(original.size(), 10u);

    ASSERT_TRUE(ZipArchive::compress(card, out + "with parent.zip", true));
    ASSERT_TRUE(ZipArchive::compress(card, out + "contents.zip", false));
    ASSERT_TRUE(ZipArchive::compress(card + "/CLIP/A001C001.mov", out + "single.zip", false));
    EXPECT_EQ(QDir(out).entryList(QDir::Files | QDir::Hidden).size(), 3);  // no temporary left
    ASSERT_TRUE(ZipArchive::extract(out + "with parent.zip", dir.filePath("x1")));
    EXPECT_EQ(snapshot(dir.filePath("x1")).size(), original.size() + 1);
    EXPECT_EQ(snapshot(dir.filePath("x1/CARD")), original);
    ASSERT_TRUE(ZipArchive::extract(out + "contents.zip", dir.filePath("x2/new")));
    EXPECT_EQ(snapshot(dir.filePath("x2/new")), original);
    ASSERT_TRUE(ZipArchive::extract(out + "single.zip", dir.filePath("x3")));
    EXPECT_EQ(snapshot(dir.filePath("x3")).at("/A001C001.mov"), original.at("/CLIP/A001C001.mov"));

    const QString unzip = "/usr/bin/unzip";
    if (!QFileInfo(unzip).isExecutable())
        GTEST_SKIP() << "unzip is not installed: no cross-check with another reader";
    const QStringList names =
        QVTaskEx::stringFromTask(unzip, {"-Z1", out + "with parent.zip"}, QVTaskEx::Encoding::UTF8)
            .split(u'\n', Qt::SkipEmptyParts);
    EXPECT_TRUE(names.contains("CARD/CLIP/deep/er/Szene 1 – Ü %.txt") &&
                names.contains("CARD/EMPTY/") && names.size() == 11)
        << names.join(u' ').toStdString();
    for (const QString& zip : QDir(out).entryList(QDir::Files))
        EXPECT_EQ(QVTaskEx::terminationCodeFromTask(unzip, {"-tqq", out + zip}), 0)
            << zip.toStdString();
}

TEST(ZipArchiveTest, FailuresLeaveNothingAndAnArchiveLeavesItselfOut) {
    const QTemporaryDir dir;
    const QString card = dir.filePath("CARD"), zip = card + "/self.zip";
    writeFile(card + "/clip.mov", noise(256 * 1024));
    EXPECT_FALSE(ZipArchive::compress(dir.filePath("missing"), dir.filePath("a.zip"), true));
    EXPECT_FALSE(ZipArchive::compress(card, dir.filePath("no/such/a.zip"), true));
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
              QStringList{"CARD"});
    // Written inside its own source, the archive leaves itself out.
    ASSERT_TRUE(ZipArchive::compress(card, zip, false));
    ASSERT_TRUE(ZipArchive::extract(zip, dir.filePath("x")));
    EXPECT_EQ(snapshot(dir.filePath("x")).size(), 1u);
}
