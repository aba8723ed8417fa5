// File digests: known MD5, SHA-1 and xxHash vectors, agreement with the system tools on a large
// file, progress reports (every byte, the 150 MiB carry) and reads that fail.

#include <gtest/gtest.h>
#include <unistd.h>

#include <QTemporaryDir>
#include <iostream>
#include <numeric>
#include <vector>

#include "DigestContext.h"
#include "FaultyFileLayer.h"
#include "FileHash.h"
#include "FileLayer.h"
#include "QVFileManager.h"
#include "QVTaskEx.h"
#include "TestFiles.h"

namespace {

constexpr std::uint64_t k150MiB = 157286400;

struct Reports {
    std::vector<std::uint64_t> sizes;
    FileHashProgress callback() {
        return [this](std::uint64_t bytes) { sizes.push_back(bytes); };
    }
    std::uint64_t total() const { return std::accumulate(sizes.begin(), sizes.end(), 0ull); }
};

}  // namespace

TEST(FileHash, KnownVectorsThroughBothPaths) {
    QTemporaryDir dir;
    const QString empty = TestFiles::write(dir.filePath("empty"), {});
    const QString abc = TestFiles::write(dir.filePath("abc"), "abc");

    Reports reports;
    EXPECT_EQ(FileMD5HashCreateWithPath(empty, 4096, reports.callback(), FileLayer::posix()),
              "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(FileSHA1HashCreateWithPath(empty, 0, reports.callback(), FileLayer::posix()),
              "da39a3ee5e6b4b0d3255bfef95601890afd80709");
    EXPECT_TRUE(reports.sizes.empty()) << "an empty file makes no report";

    // Finishing a copy leaves the running context usable.
    DigestContext md5(DigestContext::Kind::MD5);
    md5.update("ab", 2);
    EXPECT_EQ(QVFileManager(FileLayer::posix()).md5HashWithContext(md5),
              "187ef4436122d1cc2f40dc2b92f0eba0");
    md5.update("c", 1);
    EXPECT_EQ(QVFileManager(FileLayer::posix()).md5HashWithContext(md5),
              FileMD5HashCreateWithPath(abc, 4096, {}, FileLayer::posix()));
    DigestContext sha1(DigestContext::Kind::SHA1);
    sha1.update("abc", 3);
    EXPECT_EQ(QVFileManager::sha1HashWithContext(sha1), "a9993e364706816aba3e25717850c26c9cd0d89d");
    EXPECT_EQ(FileSHA1HashCreateWithPath(abc, 4096, {}, FileLayer::posix()),
              QVFileManager::sha1HashWithContext(sha1));
}

// Canonical (big-endian) hex, as xxhsum prints it; fed whole and in uneven pieces, and a copy
// finished halfway leaves its original running.
TEST(FileHash, XxHashVectorsInCanonicalForm) {
    struct Vector {
        DigestContext::Kind kind;
        QByteArray input;
        const char* hex;
    };
    const QByteArray fox = "The quick brown fox jumps over the lazy dog";
    const Vector vectors[] = {
        {DigestContext::Kind::XXH64, "", "ef46db3751d8e999"},
        {DigestContext::Kind::XXH64, "abc", "44bc2cf5ad770999"},
        {DigestContext::Kind::XXH64, fox, "0b242d361fda71bc"},
        {DigestContext::Kind::XXH3, "", "2d06800538d394c2"},
        {DigestContext::Kind::XXH3, "abc", "78af5f94892f3950"},
        {DigestContext::Kind::XXH3, fox, "ce7d19a5418fb365"},
        {DigestContext::Kind::XXH128, "", "99aa06d3014798d86001c324468d497f"},
        {DigestContext::Kind::XXH128, "abc", "06b05ab6733a618578af5f94892f3950"},
        {DigestContext::Kind::XXH128, fox, "ddd650205ca3e7fa24a1cc2e3a8a7651"},
    };
    for (const Vector& vector : vectors) {
        const QString name = DigestContext::name(vector.kind);
        DigestContext whole(vector.kind);
        whole.update(vector.input);
        EXPECT_EQ(whole.hexDigest(), vector.hex) << name.toStdString();
        EXPECT_EQ(whole.hexDigest().size(), DigestContext::hexLength(vector.kind));

        DigestContext pieces(vector.kind);
        const qsizetype half = vector.input.size() / 2;
        pieces.update(vector.input.left(half));
        const DigestContext copy = pieces;
        EXPECT_EQ(copy.hexDigest(), DigestContext(pieces).hexDigest());
        pieces.update(vector.input.mid(half));
        EXPECT_EQ(pieces.hexDigest(), vector.hex) << name.toStdString();
        EXPECT_EQ(DigestContext::fromName(name), vector.kind);
    }
    // Several kinds from one feeding: the first is the digest, the others ride along.
    DigestContext several(DigestContext::Kind::MD5,
                          {DigestContext::Kind::XXH64, DigestContext::Kind::XXH128});
    several.update("ab", 2);
    const DigestContext halfway = several;
    several.update("c", 1);
    EXPECT_EQ(several.hexDigest(), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(several.alsoHexDigests(),
              QStringList({"44bc2cf5ad770999", "06b05ab6733a618578af5f94892f3950"}));
    EXPECT_EQ(halfway.alsoHexDigests().size(), 2);
    EXPECT_EQ(DigestContext::fromName("XXH128"), DigestContext::Kind::XXH128);
    EXPECT_FALSE(DigestContext::fromName("crc32"));
}

// A multi-megabyte file through the file path, in blocks of several sizes, agrees with the
// system's tools and is reported byte for byte.
TEST(FileHash, MultiMegabyteFileMatchesSystemToolsAndReportsEveryByte) {
    QTemporaryDir dir;
    const QByteArray bytes = TestFiles::randomBytes(5 * 1024 * 1024 + 123, 42);
    const QString path = TestFiles::write(dir.filePath("clip.mxf"), bytes);
    struct Case {
        DigestContext::Kind kind;
        std::size_t block;
        QStringList tool;
    };
    for (const Case& c : {Case{DigestContext::Kind::MD5, 4096, {"/usr/bin/md5sum"}},
                          Case{DigestContext::Kind::SHA1, 1000, {"/usr/bin/sha1sum"}},
                          Case{DigestContext::Kind::XXH64, 1000, {"/usr/bin/xxhsum", "-H1"}},
                          Case{DigestContext::Kind::XXH128, 65536, {"/usr/bin/xxhsum", "-H2"}}}) {
        SCOPED_TRACE(DigestContext::name(c.kind).toStdString());
        if (!QFile::exists(c.tool.first())) {
            std::cout << "not compared: " << c.tool.first().toStdString() << " is missing\n";
            continue;
        }
        Reports reports;
        const auto digest =
            FileHashCreateWithPath(c.kind, path, c.block, reports.callback(), FileLayer::posix());
        EXPECT_EQ(
            digest,
            QVTaskEx::stringFromTask(c.tool.first(), c.tool.mid(1) << path).section(u' ', 0, 0));
        EXPECT_EQ(reports.total(), std::uint64_t(bytes.size()));
        EXPECT_EQ(reports.sizes.size(), (std::size_t(bytes.size()) + c.block - 1) / c.block);
        DigestContext pieces(c.kind);
        for (qsizetype offset = 0; offset < bytes.size(); offset += 777)
            pieces.update(bytes.mid(offset, 777));
        EXPECT_EQ(pieces.hexDigest(), digest);
    }
}

TEST(FileHash, ReportOnAnExactMultipleOf150MiBIsCarriedToTheNext) {
    QTemporaryDir dir;
    const QString over = TestFiles::sparse(dir.filePath("over"), qint64(k150MiB) + 10);
    Reports overReports;
    ASSERT_TRUE(
        FileSHA1HashCreateWithPath(over, k150MiB, overReports.callback(), FileLayer::posix()));
    EXPECT_EQ(overReports.sizes, std::vector<std::uint64_t>{k150MiB + 10});

    // A read failing with those 150 MiB still carried: one last report, and no digest.
    FaultyFileLayer files;
    files.failReadsAfter(over, off_t(k150MiB));
    Reports failedReports;
    EXPECT_FALSE(FileMD5HashCreateWithPath(over, k150MiB, failedReports.callback(), files));
    EXPECT_EQ(failedReports.sizes, std::vector<std::uint64_t>{k150MiB});
}

TEST(FileHash, UnreadableInputGivesNoDigest) {
    QTemporaryDir dir;
    Reports reports;
    EXPECT_FALSE(FileMD5HashCreateWithPath(dir.filePath("missing"), 4096, reports.callback(),
                                           FileLayer::posix()));
    // A folder opens but every read fails.
    EXPECT_FALSE(
        FileSHA1HashCreateWithPath(dir.path(), 4096, reports.callback(), FileLayer::posix()));
    EXPECT_TRUE(reports.sizes.empty());

    // A throwing callback doesn't escape either.
    const QString abc = TestFiles::write(dir.filePath("abc"), "abc");
    EXPECT_FALSE(FileMD5HashCreateWithPath(
        abc, 1, [](std::uint64_t) { throw 1; }, FileLayer::posix()));
}
