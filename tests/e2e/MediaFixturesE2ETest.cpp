// The lying medium the end-to-end tests prove copies against must really hide its lie behind
// the page cache, or a test that catches it would prove nothing about reading from the medium.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <QFile>
#include <QTemporaryDir>

#include "TestFiles.h"
#include "TestMount.h"

namespace {

QByteArray readAt(int fd, qsizetype size) {
    QByteArray bytes(size, '\0');
    const ssize_t got = ::pread(fd, bytes.data(), size_t(size), 0);
    bytes.resize(got < 0 ? 0 : got);
    return bytes;
}

}  // namespace

TEST(LyingMediumE2E, CacheKeepsTheTrueBytesWhileTheMediumStoresTheLie) {
    if (const QString reason = TestMount::unavailableReason(TestMount::Kind::Lying);
        !reason.isEmpty())
        GTEST_SKIP() << "no lying medium: " << reason.toStdString();
    QTemporaryDir work;
    constexpr qint64 kLieAt = 5000;
    TestMount medium(work.filePath("lying"), TestMount::lying(kLieAt, "CLIP"));
    ASSERT_TRUE(medium.ok()) << medium.error().toStdString();
    // Whole pages: the kernel keeps no partly written page, which would show the lie at once.
    const QByteArray truth = TestFiles::randomBytes(1024 * 1024, 7);
    QByteArray lie = truth;
    lie[kLieAt] = char(~lie[kLieAt]);
    const QString clip = medium.mountPoint() + "/DCIM/CLIP0001.MOV";
    TestFiles::write(medium.mountPoint() + "/DCIM/other.bin", truth);

    QFile file(clip);
    ASSERT_TRUE(file.open(QIODevice::ReadWrite)) << file.errorString().toStdString();
    ASSERT_EQ(file.write(truth), truth.size());
    ASSERT_TRUE(file.flush());
    EXPECT_EQ(readAt(file.handle(), truth.size()), truth) << "read right after the write";
    EXPECT_EQ(TestFiles::read(clip), truth) << "another open, cache not dropped";
    EXPECT_EQ(TestFiles::read(medium.backingPath() + "/DCIM/CLIP0001.MOV"), lie);

    ASSERT_EQ(::fdatasync(file.handle()), 0);
    ASSERT_EQ(::posix_fadvise(file.handle(), 0, 0, POSIX_FADV_DONTNEED), 0);
    EXPECT_EQ(readAt(file.handle(), truth.size()), lie) << "same descriptor, cache dropped";
    file.close();

    ASSERT_TRUE(medium.remount()) << medium.error().toStdString();
    EXPECT_EQ(TestFiles::read(clip), lie);
    EXPECT_EQ(TestFiles::read(medium.mountPoint() + "/DCIM/other.bin"), truth)
        << "only paths holding CLIP are lied about";
}
