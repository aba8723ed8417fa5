// The media the end-to-end tests prove copies against: a FUSE medium that stores a lie while
// the page cache keeps the truth.
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
#include <cerrno>

#include "LyingMedium.h"
#include "PageCache.h"
#include "QVTaskEx.h"
#include "SystemTool.h"
#include "TestFiles.h"

namespace {

constexpr qint64 kMiB = 1024 * 1024;

class Fd {
  public:
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd() {
        if (fd_ >= 0)
            ::close(fd_);
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    int get() const { return fd_; }

  private:
    int fd_;
};

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
    ASSERT_GE(Fd(::open(oddName.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0640)).get(), 0);
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
