// File digests of every kind: known vectors fed whole and in pieces, agreement with the system's
// tools on a multi-megabyte file read in blocks, progress reports (every byte, the 150 MiB
// carry) and reads that fail.

#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>
#include <numeric>
#include <vector>

#include "DigestContext.h"
#include "FaultyFileLayer.h"
#include "FileHash.h"
#include "FileLayer.h"
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

struct Kind {
    DigestContext::Kind kind;
    std::size_t block;
    std::vector<const char*> hex;  // of "", "abc" and the fox, in canonical (big-endian) form
    QStringList tool;
    friend void PrintTo(const Kind& k, std::ostream* os) {
        *os << DigestContext::name(k.kind).toStdString();
    }
};

const QByteArray kInputs[] = {"", "abc", "The quick brown fox jumps over the lazy dog"};

class FileHashKind : public testing::TestWithParam<Kind> {};

}  // namespace

TEST_P(FileHashKind, KnownVectorsAndTheSystemToolAgreeWholeOrInPieces) {
    const Kind& k = GetParam();
    QTemporaryDir dir;
    for (int i = 0; i < 3; ++i) {
        const QString path = TestFiles::write(dir.filePath(QString::number(i)), kInputs[i]);
        Reports reports;
        EXPECT_EQ(
            FileHashCreateWithPath(k.kind, path, k.block, reports.callback(), FileLayer::posix()),
            k.hex[i]);
        EXPECT_EQ(reports.total(), std::uint64_t(kInputs[i].size())) << "an empty file: none";
        // A copy finished halfway leaves its original running.
        DigestContext pieces(k.kind);
        pieces.update(kInputs[i].left(2));
        EXPECT_FALSE(DigestContext(pieces).hexDigest().isEmpty());
        pieces.update(kInputs[i].mid(2));
        EXPECT_EQ(pieces.hexDigest(), k.hex[i]);
    }
    EXPECT_EQ(DigestContext::fromName(DigestContext::name(k.kind)), k.kind);

    const QByteArray bytes = TestFiles::randomBytes(5 * 1024 * 1024 + 123, 42);
    const QString path = TestFiles::write(dir.filePath("clip.mxf"), bytes);
    Reports reports;
    const auto digest =
        FileHashCreateWithPath(k.kind, path, k.block, reports.callback(), FileLayer::posix());
    EXPECT_EQ(reports.total(), std::uint64_t(bytes.size()));
    EXPECT_EQ(reports.sizes.size(), (std::size_t(bytes.size()) + k.block - 1) / k.block);
    if (!QFile::exists(k.tool.first()))
        GTEST_SKIP() << k.tool.first().toStdString() << " is missing: not compared";
    // md5sum: "digest  path"; xxhsum -H3: "XXH3 (path) = digest".
    const QString out = QVTaskEx::stringFromTask(k.tool.first(), k.tool.mid(1) << path).trimmed();
    EXPECT_EQ(digest, out.contains(" = ") ? out.section(" = ", -1) : out.section(u' ', 0, 0));
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, FileHashKind,
    testing::Values(Kind{DigestContext::Kind::MD5,
                         4096,
                         {"d41d8cd98f00b204e9800998ecf8427e", "900150983cd24fb0d6963f7d28e17f72",
                          "9e107d9d372bb6826bd81d3542a419d6"},
                         {"/usr/bin/md5sum"}},
                    Kind{DigestContext::Kind::SHA1,
                         1000,
                         {"da39a3ee5e6b4b0d3255bfef95601890afd80709",
                          "a9993e364706816aba3e25717850c26c9cd0d89d",
                          "2fd4e1c67a2d28fced849ee1bb76e7391b93eb12"},
                         {"/usr/bin/sha1sum"}},
                    Kind{DigestContext::Kind::XXH64,
                         1000,
                         {"ef46db3751d8e999", "44bc2cf5ad770999", "0b242d361fda71bc"},
                         {"/usr/bin/xxhsum", "-H1"}},
                    Kind{DigestContext::Kind::XXH3,
                         65536,
                         {"2d06800538d394c2", "78af5f94892f3950", "ce7d19a5418fb365"},
                         {"/usr/bin/xxhsum", "-H3"}},
                    Kind{DigestContext::Kind::XXH128,
                         65536,
                         {"99aa06d3014798d86001c324468d497f", "06b05ab6733a618578af5f94892f3950",
                          "ddd650205ca3e7fa24a1cc2e3a8a7651"},
                         {"/usr/bin/xxhsum", "-H2"}}));

// A report on an exact multiple of 150 MiB is carried to the next; a read that fails still
// reports what was read and gives no digest, as do a missing file, a folder and a throwing
// callback.
TEST(FileHash, CarriedReportsAndReadsThatFail) {
    QTemporaryDir dir;
    const QString over = TestFiles::sparse(dir.filePath("over"), qint64(k150MiB) + 10);
    Reports overReports;
    ASSERT_TRUE(
        FileSHA1HashCreateWithPath(over, k150MiB, overReports.callback(), FileLayer::posix()));
    EXPECT_EQ(overReports.sizes, std::vector<std::uint64_t>{k150MiB + 10});

    FaultyFileLayer files;
    files.failReadsAfter(over, off_t(k150MiB));
    Reports failedReports;
    const auto failed = FileMD5HashCreateWithPath(over, k150MiB, failedReports.callback(), files);
    EXPECT_EQ(failed.status().code(), EIO);
    EXPECT_EQ(failedReports.sizes, std::vector<std::uint64_t>{k150MiB});

    Reports reports;
    EXPECT_EQ(FileMD5HashCreateWithPath(dir.filePath("missing"), 4096, reports.callback(),
                                        FileLayer::posix())
                  .status()
                  .code(),
              ENOENT);
    EXPECT_EQ(FileSHA1HashCreateWithPath(dir.path(), 4096, reports.callback(), FileLayer::posix())
                  .status()
                  .code(),
              EISDIR);
    EXPECT_TRUE(reports.sizes.empty());
    const QString abc = TestFiles::write(dir.filePath("abc"), "abc");
    EXPECT_FALSE(FileMD5HashCreateWithPath(
        abc, 1, [](std::uint64_t) { throw 1; }, FileLayer::posix()));
}
