// Zip archives: trees round-trip byte for byte (modes, times, links, empty folders), another
// reader agrees, failures leave nothing behind, and extraction never escapes its folder.

#include <archive.h>
#include <archive_entry.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QTemporaryDir>
#include <map>
#include <memory>
#include <tuple>

#include "QVTaskEx.h"
#include "TestFiles.h"
#include "ZipArchive.h"

using namespace Qt::StringLiterals;

namespace {

void writeFile(const QString& path, const QByteArray& data, mode_t mode = 0644) {
    ASSERT_EQ(chmod(QFile::encodeName(TestFiles::write(path, data)).constData(), mode), 0);
}

// Per relative path: type and permissions, modification time (not for links), and the
// bytes of a file or the target of a link.
std::map<QString, std::tuple<mode_t, time_t, QByteArray>> snapshot(const QString& root) {
    std::map<QString, std::tuple<mode_t, time_t, QByteArray>> tree;
    QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QByteArray path = QFile::encodeName(it.next());
        struct stat info {};
        EXPECT_EQ(lstat(path.constData(), &info), 0);
        QByteArray content(4096, Qt::Uninitialized);
        QFile file(it.filePath());
        if (S_ISLNK(info.st_mode)) {
            content.truncate(readlink(path.constData(), content.data(), size_t(content.size())));
        } else {
            content = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
        }
        tree[QDir(root).relativeFilePath(it.filePath())] = {
            info.st_mode, S_ISLNK(info.st_mode) ? 0 : info.st_mtime, content};
    }
    return tree;
}

QByteArray randomBytes(qsizetype size) {
    return TestFiles::randomBytes(size, 20240611);
}

// A zip with the given entries (name, link target or empty for a file), made by libarchive.
void writeRawZip(const QString& path, const std::vector<std::pair<QByteArray, QByteArray>>& items) {
    const std::unique_ptr<archive, int (*)(archive*)> zip(archive_write_new(), &archive_write_free);
    archive_write_set_format_zip(zip.get());
    ASSERT_EQ(archive_write_open_filename(zip.get(), QFile::encodeName(path).constData()), 0);
    for (const auto& [name, link] : items) {
        const std::unique_ptr<archive_entry, void (*)(archive_entry*)> entry(archive_entry_new(),
                                                                             &archive_entry_free);
        archive_entry_copy_pathname(entry.get(), name.constData());
        archive_entry_set_mode(entry.get(), (link.isEmpty() ? AE_IFREG : AE_IFLNK) | 0644);
        archive_entry_copy_symlink(entry.get(), link.isEmpty() ? nullptr : link.constData());
        archive_entry_set_size(entry.get(), link.isEmpty() ? 4 : 0);
        ASSERT_EQ(archive_write_header(zip.get(), entry.get()), ARCHIVE_OK);
        archive_write_data(zip.get(), "evil", link.isEmpty() ? 4 : 0);
    }
    ASSERT_EQ(archive_write_close(zip.get()), ARCHIVE_OK);
}

}  // namespace

TEST(ZipArchiveTest, TreesRoundTripByteForByte) {
    const QTemporaryDir dir;
    const QString card = dir.filePath(u"CARD"_s), out = dir.filePath(u"out/"_s);
    writeFile(card + u"/CLIP/A001C001.mov"_s, randomBytes(5 * 1024 * 1024 + 17));
    writeFile(card + u"/CLIP/empty.bin"_s, {});
    writeFile(card + u"/CLIP/deep/er/Szene 1 – Ü %.txt"_s, "nested", 0600);
    writeFile(card + u"/tools/run.sh"_s, "#!/bin/sh\n", 0755);
    ASSERT_TRUE(QDir(card).mkdir(u"EMPTY"_s) && QDir(out).mkpath(u"."_s));
    ASSERT_TRUE(QFile::link(u"CLIP/A001C001.mov"_s, card + u"/link"_s));
    QFile old(card + u"/CLIP/empty.bin"_s);
    ASSERT_TRUE(old.open(QIODevice::ReadWrite) &&
                old.setFileTime(QDateTime(QDate(2001, 2, 3), QTime(4, 5, 6)),
                                QFileDevice::FileModificationTime));
    ASSERT_EQ(chmod(QFile::encodeName(card + u"/tools"_s).constData(), 0750), 0);
    const auto original = snapshot(card);
    ASSERT_EQ(original.size(), 10u);

    ASSERT_TRUE(ZipArchive::compress(card, out + u"with parent.zip"_s, true));
    ASSERT_TRUE(ZipArchive::compress(card, out + u"contents.zip"_s, false));
    ASSERT_TRUE(ZipArchive::compress(card + u"/CLIP/A001C001.mov"_s, out + u"single.zip"_s, false));
    EXPECT_EQ(QDir(out).entryList(QDir::Files | QDir::Hidden).size(), 3);  // no temporary left
    ASSERT_TRUE(ZipArchive::extract(out + u"with parent.zip"_s, dir.filePath(u"x1"_s)));
    EXPECT_EQ(snapshot(dir.filePath(u"x1"_s)).size(), original.size() + 1);
    EXPECT_EQ(snapshot(dir.filePath(u"x1/CARD"_s)), original);
    ASSERT_TRUE(ZipArchive::extract(out + u"contents.zip"_s, dir.filePath(u"x2/new"_s)));
    EXPECT_EQ(snapshot(dir.filePath(u"x2/new"_s)), original);
    ASSERT_TRUE(ZipArchive::extract(out + u"single.zip"_s, dir.filePath(u"x3"_s)));
    EXPECT_EQ(snapshot(dir.filePath(u"x3"_s)).at(u"A001C001.mov"_s),
              original.at(u"CLIP/A001C001.mov"_s));

    // Another reader agrees on the names and the checksums.
    const QString unzip = u"/usr/bin/unzip"_s;
    if (!QFileInfo(unzip).isExecutable()) {
        GTEST_SKIP() << "unzip is not installed: no cross-check with another reader";
    }
    const QStringList names =
        QVTaskEx::stringFromTask(unzip, {u"-Z1"_s, out + u"with parent.zip"_s},
                                 QVTaskEx::Encoding::UTF8)
            .split(u'\n', Qt::SkipEmptyParts);
    EXPECT_TRUE(names.contains(u"CARD/CLIP/deep/er/Szene 1 – Ü %.txt"_s) &&
                names.contains(u"CARD/EMPTY/"_s) && names.size() == 11)
        << names.join(u' ').toStdString();
    for (const QString& zip : QDir(out).entryList(QDir::Files)) {
        EXPECT_EQ(QVTaskEx::terminationCodeFromTask(unzip, {u"-tqq"_s, out + zip}), 0);
    }
}

TEST(ZipArchiveTest, FailuresLeaveNothingAndDamageIsCaught) {
    const QTemporaryDir dir;
    const QString card = dir.filePath(u"CARD"_s), zip = card + u"/self.zip"_s;
    writeFile(card + u"/clip.mov"_s, randomBytes(256 * 1024));
    EXPECT_FALSE(ZipArchive::compress(dir.filePath(u"missing"_s), dir.filePath(u"a.zip"_s), true));
    EXPECT_FALSE(ZipArchive::compress(card, dir.filePath(u"no/such/a.zip"_s), true));
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
              QStringList{u"CARD"_s});
    // Written inside its own source, the archive leaves itself out.
    ASSERT_TRUE(ZipArchive::compress(card, zip, false));
    ASSERT_TRUE(ZipArchive::extract(zip, dir.filePath(u"x"_s)));
    EXPECT_EQ(snapshot(dir.filePath(u"x"_s)).size(), 1u);

    QFile file(zip);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    QByteArray bytes = file.readAll();
    writeFile(dir.filePath(u"noise.zip"_s), randomBytes(4096));
    writeFile(dir.filePath(u"short.zip"_s), bytes.left(bytes.size() / 2));
    bytes[bytes.size() / 2] = char(bytes[bytes.size() / 2] ^ 0x40);  // inside the clip's bytes
    writeFile(dir.filePath(u"flipped.zip"_s), bytes);
    for (const QString& name : {u"noise.zip"_s, u"short.zip"_s, u"flipped.zip"_s, u"none.zip"_s}) {
        EXPECT_FALSE(ZipArchive::extract(dir.filePath(name), dir.filePath(u"y"_s))) << name.data();
    }
}

TEST(ZipArchiveTest, ExtractionStaysInsideTheDestination) {
    const QTemporaryDir dir;
    const QByteArray absolute = QFile::encodeName(dir.filePath(u"absolute.txt"_s));
    const std::vector<std::vector<std::pair<QByteArray, QByteArray>>> hostile = {
        {{"fine.txt", {}}, {"../escaped.txt", {}}},
        {{absolute, {}}},
        {{"up", ".."}, {"up/escaped.txt", {}}},
    };
    for (const auto& entries : hostile) {
        writeRawZip(dir.filePath(u"hostile.zip"_s), entries);
        EXPECT_FALSE(ZipArchive::extract(dir.filePath(u"hostile.zip"_s), dir.filePath(u"in/to"_s)));
        EXPECT_FALSE(QFileInfo::exists(dir.filePath(u"escaped.txt"_s)) ||
                     QFileInfo::exists(dir.filePath(u"in/escaped.txt"_s)) ||
                     QFileInfo::exists(QFile::decodeName(absolute)));
    }
    EXPECT_TRUE(QFileInfo::exists(dir.filePath(u"in/to/fine.txt"_s)));
}
