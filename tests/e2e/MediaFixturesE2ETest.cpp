// The media the end-to-end tests prove copies against: a FUSE medium that stores a lie while
// the page cache keeps the truth, an ext4 disk that fills up, and one whose backing store
// runs out at writeback.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QThread>
#include <cerrno>

#include "LoopDisk.h"
#include "LyingMedium.h"
#include "PageCache.h"
#include "QVTaskEx.h"
#include "SystemTool.h"
#include "TestFiles.h"
#include "TestMount.h"
#include "UniqueFd.h"

namespace {

constexpr qint64 kMiB = 1024 * 1024;

QByteArray pread(int fd, qsizetype size) {
    QByteArray bytes(size, '\0');
    const ssize_t got = ::pread(fd, bytes.data(), size_t(size), 0);
    bytes.resize(got < 0 ? 0 : got);
    return bytes;
}

QByteArray withByteInverted(QByteArray bytes, qsizetype at) {
    bytes[at] = char(~bytes[at]);
    return bytes;
}

// The file behind a loop device, as the kernel names it; empty once it is detached.
QByteArray backingFileOf(const QString& device) {
    QFile backing("/sys/block/" + QFileInfo(device).fileName() + "/loop/backing_file");
    return backing.open(QIODevice::ReadOnly) ? backing.readAll().trimmed() : QByteArray();
}

// Writes all of bytes; errno of the first failed write, 0 when all went in.
int writeAll(int fd, const QByteArray& bytes, qint64* written = nullptr) {
    qint64 done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.constData() + done, size_t(bytes.size() - done));
        if (n < 0)
            return errno;
        done += n;
        if (written)
            *written = done;
    }
    return 0;
}

class LyingMediumE2E : public testing::Test {
  protected:
    void SetUp() override {
        const QString reason = LyingMedium::unavailableReason();
        if (!reason.isEmpty())
            GTEST_SKIP() << "no lying medium: " << reason.toStdString();
        ASSERT_TRUE(work_.isValid());
    }
    // Qt can't remove a name that is not UTF-8; the media are gone by now, so rm stays here.
    void TearDown() override {
        if (QFileInfo::exists(work_.path()))
            SystemTool::run("rm", {"-rf", "--one-file-system", work_.path()});
    }
    QTemporaryDir work_;
};

class LoopDiskE2E : public testing::Test {
  protected:
    void SetUp() override {
        const QString reason = LoopDisk::unavailableReason();
        if (!reason.isEmpty())
            GTEST_SKIP() << "no loop disks: " << reason.toStdString();
        ASSERT_TRUE(work_.isValid());
    }
    QTemporaryDir work_;
};

}  // namespace

TEST_F(LyingMediumE2E, CacheKeepsTheTrueBytesWhileTheMediumStoresTheLie) {
    constexpr qint64 kLieAt = 5000;
    LyingMedium medium(work_.filePath("lying"), kLieAt, "CLIP");
    ASSERT_TRUE(medium.ok()) << medium.error().toStdString();
    // Whole pages: the kernel keeps no partly written page, which would show the lie at once.
    const QByteArray truth = TestFiles::randomBytes(kMiB, 7);
    const QByteArray lie = withByteInverted(truth, kLieAt);
    const QString clip = medium.mountPoint() + "/DCIM/CLIP0001.MOV";
    TestFiles::write(medium.mountPoint() + "/DCIM/other.bin", truth);

    QFile file(clip);
    ASSERT_TRUE(file.open(QIODevice::ReadWrite)) << file.errorString().toStdString();
    ASSERT_EQ(writeAll(file.handle(), truth), 0);
    EXPECT_EQ(pread(file.handle(), truth.size()), truth) << "read right after the write";
    EXPECT_EQ(TestFiles::read(clip), truth) << "another open, cache not dropped";
    EXPECT_EQ(TestFiles::read(medium.backingPath() + "/DCIM/CLIP0001.MOV"), lie);

    ASSERT_EQ(PageCache::evict(file.handle()), QString());
    EXPECT_EQ(pread(file.handle(), truth.size()), lie) << "same descriptor, cache dropped";
    file.close();

    ASSERT_TRUE(medium.remount()) << medium.error().toStdString();
    EXPECT_EQ(TestFiles::read(clip), lie);
    EXPECT_EQ(TestFiles::read(medium.mountPoint() + "/DCIM/other.bin"), truth)
        << "only paths holding CLIP are lied about";
}

TEST_F(LyingMediumE2E, ACopyProgramWorksOnIt) {
    const QString cp = SystemTool::find("cp");
    if (cp.isEmpty())
        GTEST_SKIP() << "cp is not installed";
    const QString source = work_.filePath("card");
    TestFiles::write(source + "/A/clip.mov", TestFiles::randomBytes(300 * 1024 + 5, 3));
    TestFiles::write(source + "/A/B/Notes \"1\"\n ü.txt", "notes");
    // A name that is no UTF-8 at all, made with the raw bytes.
    const QByteArray oddName = QFile::encodeName(source) + "/A/not\xff utf8";
    ASSERT_GE(UniqueFd(::open(oddName.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0640)).get(), 0);
    ASSERT_EQ(::symlink("clip.mov", QFile::encodeName(source + "/A/link").constData()), 0);
    const timespec times[2] = {{1'000'000'000, 0}, {1'000'000'000, 0}};
    ASSERT_EQ(
        ::utimensat(AT_FDCWD, QFile::encodeName(source + "/A/clip.mov").constData(), times, 0), 0);
    LyingMedium medium(work_.filePath("lying"), 0, "no such name");
    ASSERT_TRUE(medium.ok()) << medium.error().toStdString();
    const QString copy = medium.mountPoint() + "/copy";

    ASSERT_EQ(QVTaskEx::terminationCodeFromTask(cp, {"-a", source, copy}), 0);
    EXPECT_EQ(TestFiles::tree(copy), TestFiles::tree(source));
    EXPECT_EQ(QFileInfo(copy + "/A/link").symLinkTarget(), copy + "/A/clip.mov");
    EXPECT_EQ(QFileInfo(copy + "/A/clip.mov").lastModified().toSecsSinceEpoch(), 1'000'000'000);
    const QByteArray oddCopy = QFile::encodeName(medium.backingPath()) + "/copy/A/not\xff utf8";
    struct stat oddStat {};
    ASSERT_EQ(::stat(oddCopy.constData(), &oddStat), 0);
    EXPECT_EQ(oddStat.st_mode & 0777, 0640u);

    // What a copy engine does after the data: sync, rename into place, trim, tidy up.
    const QString clip = copy + "/A/clip.mov";
    EXPECT_EQ(PageCache::evict(clip), QString());
    ASSERT_TRUE(QFile::rename(clip, copy + "/A/CLIP.MOV"));
    ASSERT_TRUE(QFile::resize(copy + "/A/CLIP.MOV", 10));
    EXPECT_EQ(QFileInfo(medium.backingPath() + "/copy/A/CLIP.MOV").size(), 10);
    EXPECT_TRUE(QFile::remove(copy + "/A/link"));
    struct statvfs volume {};
    EXPECT_EQ(::statvfs(QFile::encodeName(copy).constData(), &volume), 0);
    EXPECT_GT(volume.f_blocks, 0u);
    // Qt can't name the odd file to remove it; the raw bytes can.
    EXPECT_EQ(::unlink((QFile::encodeName(copy) + "/A/not\xff utf8").constData()), 0);
    EXPECT_TRUE(QDir(copy).removeRecursively());
    EXPECT_TRUE(QDir(medium.backingPath()).isEmpty());
}

TEST_F(LoopDiskE2E, FillsUpWithEnospcAndKeepsWhatFitAcrossARemount) {
    LoopDisk disk(work_.filePath("disk"), {.sizeBytes = 8 * kMiB});
    ASSERT_TRUE(disk.ok()) << disk.error().toStdString();
    EXPECT_TRUE(disk.device().startsWith("/dev/loop"));
    const QByteArray kept = TestFiles::randomBytes(kMiB, 5);
    TestFiles::write(disk.mountPoint() + "/kept.bin", kept);

    QFile big(disk.mountPoint() + "/big.bin");
    ASSERT_TRUE(big.open(QIODevice::WriteOnly));
    qint64 written = 0;
    EXPECT_EQ(writeAll(big.handle(), TestFiles::randomBytes(16 * kMiB, 6), &written), ENOSPC);
    EXPECT_GT(written, kMiB);
    EXPECT_LT(written, 7 * kMiB);
    big.close();

    ASSERT_TRUE(disk.unmount());
    ASSERT_TRUE(disk.remount()) << disk.error().toStdString();
    EXPECT_EQ(TestFiles::read(disk.mountPoint() + "/kept.bin"), kept);
    EXPECT_EQ(QFileInfo(disk.mountPoint() + "/big.bin").size(), written);
}

TEST_F(LoopDiskE2E, ExhaustedBackingStoreFailsAtWritebackAndNeverReadsBackTheLostBytes) {
    LoopDisk disk(work_.filePath("disk"), {.sizeBytes = 32 * kMiB, .backingRoomBytes = kMiB});
    ASSERT_TRUE(disk.ok()) << disk.error().toStdString();
    const QByteArray bytes = TestFiles::randomBytes(4 * kMiB, 9);
    // syncfs() reports only errors that happen after its descriptor was opened.
    const UniqueFd folder(::open(QFile::encodeName(disk.mountPoint()).constData(),
                                 O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_GE(folder.get(), 0);
    QFile file(disk.mountPoint() + "/clip.mov");
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));

    EXPECT_EQ(writeAll(file.handle(), bytes), 0) << "the page cache takes it all";
    errno = 0;
    EXPECT_NE(::fdatasync(file.handle()), 0);
    EXPECT_TRUE(errno == ENOSPC || errno == EIO) << strerror(errno);
    errno = 0;
    EXPECT_NE(::syncfs(folder.get()), 0);
    EXPECT_TRUE(errno == ENOSPC || errno == EIO) << strerror(errno);
    ::posix_fadvise(file.handle(), 0, 0, POSIX_FADV_DONTNEED);
    const QByteArray back = pread(file.handle(), bytes.size());
    EXPECT_NE(back, bytes) << "read back from the disk, the lost blocks can't match";
}

TEST_F(LoopDiskE2E, FixturesLeaveNothingMountedOrAttachedEvenWithFilesStillOpen) {
    const QString lyingReason = LyingMedium::unavailableReason();
    if (!lyingReason.isEmpty())
        GTEST_SKIP() << "no lying medium: " << lyingReason.toStdString();
    const QString diskPoint = work_.filePath("disk");
    const QString lyingPoint = work_.filePath("lying");
    QString device;
    QByteArray image;
    QFile onDisk(diskPoint + "/open.bin");
    QFile onLying(lyingPoint + "/open.bin");
    {
        const LoopDisk disk(diskPoint, {.sizeBytes = 8 * kMiB, .backingRoomBytes = kMiB});
        const LyingMedium lying(lyingPoint, 0);
        ASSERT_TRUE(disk.ok() && lying.ok())
            << disk.error().toStdString() << lying.error().toStdString();
        device = disk.device();
        image = backingFileOf(device);
        ASSERT_FALSE(image.isEmpty());
        ASSERT_TRUE(onDisk.open(QIODevice::WriteOnly) && onLying.open(QIODevice::WriteOnly));
    }
    EXPECT_FALSE(TestMount::isMounted(diskPoint));
    EXPECT_FALSE(TestMount::isMounted(lyingPoint));
    EXPECT_FALSE(QFileInfo::exists(diskPoint) || QFileInfo::exists(lyingPoint));
    onDisk.close();
    onLying.close();
    // The kernel lets the device go once the last file on it is closed.
    for (int wait = 0; wait < 50 && backingFileOf(device) == image; ++wait)
        QThread::msleep(100);
    EXPECT_NE(backingFileOf(device), image) << device.toStdString() << " is still attached";
}
