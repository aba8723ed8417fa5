// The copy engine: every byte to every destination with digests that agree with the system's
// tools, progress and cancelling, failure paths that protect data, and copied attributes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include "CopyEngine.h"
#include "FaultyFileLayer.h"
#include "FileHash.h"
#include "QVFileManager.h"
#include "QVTaskEx.h"
#include "SystemLog.h"
#include "TestFiles.h"

namespace {

constexpr std::uint64_t MiB = 1024 * 1024;

// Records every message, in order; can cancel at the n-th question.
class RecordingDelegate : public CopyDelegate {
  public:
    explicit RecordingDelegate(int cancelAt = -1) : cancelAt_(cancelAt) {}

    void fileCopyBytesWritten(std::uint64_t bytes, const std::shared_ptr<CopyInfo>&) override {
        events << QStringLiteral("bytes %1").arg(bytes);
    }
    bool fileCopyShouldContinue(const std::shared_ptr<CopyInfo>&) override {
        events << QStringLiteral("continue?");
        return ++questions != cancelAt_;
    }
    void fileCopyVerificationFailed(const std::shared_ptr<CopyInfo>& info,
                                    const QString& file) override {
        events << QStringLiteral("failed %1").arg(QFileInfo(file).fileName());
        failedChecksums << info->destChecksum.value_or(QString());
    }
    void fileCopyFinished(const std::shared_ptr<CopyInfo>& info) override {
        events << QStringLiteral("finished");
        finished = info;
    }

    QStringList events;
    QStringList failedChecksums;
    std::shared_ptr<CopyInfo> finished;
    int questions = 0;

  private:
    const int cancelAt_;
};

}  // namespace

TEST(CopyEngine, EveryDestinationGetsEveryByteWithMatchingDigests) {
    QTemporaryDir dir;
    struct Case {
        qsizetype size;
        int destinations;
        VerificationType type;
        const char* tool;
    };
    // Sizes either side of the engine's block, so both the inline and the threaded paths run.
    for (const Case& c : {Case{9 * MiB + 5, 3, VerificationType::MD5, "/usr/bin/md5sum"},
                          Case{100 * 1024 + 1, 2, VerificationType::SHA1, "/usr/bin/sha1sum"}}) {
        const QString source = TestFiles::write(dir.filePath("card/CLIP/A001 'x' $(y).mov"),
                                                TestFiles::randomBytes(c.size, quint32(c.size)));
        QStringList destinations;
        for (int d = 0; d < c.destinations; ++d)
            destinations << dir.filePath(
                QStringLiteral("dest%1/%2/new folder/A001.mov").arg(d).arg(c.size));
        RecordingDelegate delegate;
        ASSERT_TRUE(QVFileManager::copyFileWithProgress(source, destinations, c.type, &delegate,
                                                        std::any(7), std::any()));
        for (const QString& destination : destinations)
            EXPECT_EQ(TestFiles::read(destination), TestFiles::read(source))
                << destination.toStdString();

        ASSERT_TRUE(delegate.finished);
        const CopyInfo& info = *delegate.finished;
        EXPECT_EQ(std::any_cast<int>(info.object), 7);
        EXPECT_EQ(info.sourceChecksum,
                  QVTaskEx::stringFromTask(c.tool, {source}).section(u' ', 0, 0));
        EXPECT_EQ(info.destChecksums, QStringList(c.destinations, *info.sourceChecksum));
        // Under 40 MiB: no report in the loop, one at the end, never a question.
        EXPECT_EQ(delegate.events,
                  QStringList({QStringLiteral("bytes %1").arg(c.size), "finished"}));
    }
}

TEST(CopyEngine, DataEndingOnAPassBoundaryMakesOneEmptyPass) {
    QTemporaryDir dir;
    for (const qint64 size :
         {qint64(0), qint64(3 * 32768), qint64(3 * 32768 + 1), qint64(8 * MiB)}) {
        const QString source = TestFiles::write(dir.filePath(QStringLiteral("src%1").arg(size)),
                                                TestFiles::randomBytes(size, 3));
        const QString destination = dir.filePath(QStringLiteral("dst%1").arg(size));
        SystemLog::Capture log;
        RecordingDelegate delegate;
        ASSERT_TRUE(QVFileManager::copyFileWithProgress(source, {destination},
                                                        VerificationType::MD5, &delegate));
        EXPECT_EQ(log.count(source + " returned 0 bytes"), size % 32768 == 0 ? 1 : 0) << size;
        EXPECT_EQ(TestFiles::read(destination), TestFiles::read(source));
        EXPECT_EQ(delegate.finished->sourceChecksum, FileMD5HashCreateWithPath(source));
    }
}

TEST(CopyEngine, ReportsEvery40MiBAndCancelsAtTheAnswer) {
    QTemporaryDir dir;
    const QString source = TestFiles::sparse(dir.filePath("big.mxf"), qint64(100 * MiB + 3));
    RecordingDelegate delegate;
    ASSERT_TRUE(QVFileManager::copyFileWithProgress(source, {dir.filePath("copy.mxf")},
                                                    VerificationType::None, &delegate));
    EXPECT_EQ(delegate.events,
              QStringList({QStringLiteral("bytes %1").arg(40 * MiB), "continue?",
                           QStringLiteral("bytes %1").arg(80 * MiB), "continue?",
                           QStringLiteral("bytes %1").arg(100 * MiB + 3), "finished"}));
    EXPECT_FALSE(delegate.finished->sourceChecksum) << "no digests without verification";
    EXPECT_FALSE(delegate.finished->destChecksums);

    // Data ending exactly on a report is reported twice: in the loop and at the end.
    const QString exact = TestFiles::sparse(dir.filePath("exact.mxf"), qint64(80 * MiB));
    RecordingDelegate exactDelegate;
    ASSERT_TRUE(QVFileManager::copyFileWithProgress(exact, {dir.filePath("exact copy.mxf")},
                                                    VerificationType::None, &exactDelegate));
    EXPECT_EQ(exactDelegate.events.count(QStringLiteral("bytes %1").arg(80 * MiB)), 2);

    RecordingDelegate canceller(1);
    const QStringList copies = {dir.filePath("a/part.mxf"), dir.filePath("b/part.mxf")};
    EXPECT_FALSE(
        QVFileManager::copyFileWithProgress(source, copies, VerificationType::MD5, &canceller));
    EXPECT_EQ(canceller.events,
              QStringList({QStringLiteral("bytes %1").arg(40 * MiB), "continue?"}));
    for (const QString& copy : copies)
        EXPECT_EQ(QFileInfo(copy).size(), qint64(40 * MiB)) << "partial files hold what was told";
}

TEST(CopyEngine, DamagedCopiesAreReportedNeverPassedSilently) {
    QTemporaryDir dir;
    const QByteArray bytes = TestFiles::randomBytes(qsizetype(12 * MiB + 77), 9);
    const QString source = TestFiles::write(dir.filePath("src.mov"), bytes);
    const QString full = dir.filePath("full/disk.mov");
    const QString corrupt = dir.filePath("bad/ram.mov");
    const QString good = dir.filePath("good/copy.mov");
    const QString unreadable = dir.filePath("flaky/back.mov");

    FaultyFileLayer layer;
    layer.failWritesAfter(full, qint64(5 * MiB + 1));
    layer.corruptWriteAt(corrupt, qint64(7 * MiB + 3));
    layer.failReadsAfter(unreadable, qint64(9 * MiB));
    RecordingDelegate delegate;
    SystemLog::Capture log;
    ASSERT_TRUE(QVFileManager::copyFileWithProgress(source, {full, good, corrupt, unreadable},
                                                    VerificationType::SHA1, &delegate, {}, {},
                                                    layer));
    // One line per failing 32 KiB pass, in pass and then destination order.
    const QString writeError = "Error writing file " + full + ": 1";
    const QString seekError = "Error: unable to seek within file " + unreadable;
    const QStringList lines = log.lines();
    EXPECT_EQ(lines.count(writeError), 225) << "passes 160 (whose first byte lands) to 384";
    EXPECT_EQ(lines.count(seekError), 97) << "passes 288 to 384";
    EXPECT_EQ(lines.mid(128, 7),
              QStringList({writeError, seekError, "cur pos: 9437184", "read size: 32768",
                           QStringLiteral("errno: %1").arg(EIO), "err: 1", writeError}));
    EXPECT_EQ(delegate.events.filter("failed"),
              QStringList({"failed disk.mov", "failed ram.mov", "failed back.mov"}));
    const CopyInfo& info = *delegate.finished;
    EXPECT_EQ(info.destChecksums->at(1), *info.sourceChecksum);
    EXPECT_EQ(delegate.failedChecksums,
              QStringList({info.destChecksums->at(0), info.destChecksums->at(2),
                           info.destChecksums->at(3)}));
    EXPECT_EQ(TestFiles::read(good), bytes);
    // A damaged copy's digest is that of what it really holds.
    EXPECT_EQ(info.destChecksums->at(0), FileSHA1HashCreateWithPath(full));
    EXPECT_EQ(info.destChecksums->at(2), FileSHA1HashCreateWithPath(corrupt));
    EXPECT_EQ(QFileInfo(full).size(), qint64(5 * MiB + 1));
    EXPECT_EQ(info.destChecksum, info.destChecksums->at(3)) << "the record keeps the last failure";
}

TEST(CopyEngine, ACardPulledMidReadFailsTheCopy) {
    QTemporaryDir dir;
    for (const qint64 size : {qint64(300 * 1024), qint64(10 * MiB)}) {
        const QString source = TestFiles::write(
            dir.filePath(QStringLiteral("card%1.mov").arg(size)), TestFiles::randomBytes(size, 5));
        FaultyFileLayer layer;
        layer.failReadsAfter(source, size / 2);
        RecordingDelegate delegate;
        SystemLog::Capture log;
        EXPECT_FALSE(QVFileManager::copyFileWithProgress(
            source, {dir.filePath("copy.mov")}, VerificationType::MD5, &delegate, {}, {}, layer));
        EXPECT_EQ(
            log.lines().filter(source),
            QStringList({source + " returned 0 bytes",
                         "Error: copied file size does not match original source " + source}));
        EXPECT_FALSE(delegate.finished);
    }
}

TEST(CopyEngine, ChecksRefuseBeforeWritingAnything) {
    QTemporaryDir dir;
    const QString source = TestFiles::write(dir.filePath("src.mov"), "data");
    TestFiles::write(dir.filePath("plainfile"), "x");
    SystemLog::Capture log;
    const auto copy = [&](const QString& from, const QStringList& to,
                          FileLayer& layer = FileLayer::posix()) {
        return QVFileManager::copyFileWithProgress(from, to, VerificationType::MD5, nullptr, {}, {},
                                                   layer);
    };

    EXPECT_FALSE(copy(dir.filePath("gone.mov"), {dir.filePath("o")}));
    EXPECT_TRUE(log.contains("Error: File " + dir.filePath("gone.mov") +
                             " doesn't exist. Aborting copy process..."));
    EXPECT_FALSE(copy(source, {}));
    EXPECT_TRUE(
        log.contains("Error: You must have at least one destination. Aborting copy process..."));

    const QString blocked = dir.filePath("plainfile/sub");
    EXPECT_FALSE(copy(source, {dir.filePath("ok/a"), blocked + "/a"}));
    EXPECT_TRUE(log.contains("Unable to copy file " + source + " - destination directory " +
                             blocked + " doesn't exist. Aborting copy process..."));
    EXPECT_TRUE(QFileInfo(dir.filePath("ok")).isDir()) << "earlier folders stay";
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("ok/a")));

    QDir().mkpath(dir.filePath("isafolder"));
    EXPECT_FALSE(copy(source, {dir.filePath("ok/b"), dir.filePath("isafolder")}));
    EXPECT_TRUE(log.contains("Error: Unable to open destination file " + dir.filePath("isafolder") +
                             ". Aborting copy process..."));
    const QFileInfo earlier(dir.filePath("ok/b"));
    EXPECT_TRUE(earlier.isFile() && earlier.size() == 0) << "earlier destinations stay, empty";

    FaultyFileLayer layer;
    layer.failOpens(source);
    EXPECT_FALSE(copy(source, {dir.filePath("ok/c")}, layer));
    EXPECT_TRUE(
        log.contains("Error: Unable to read source file " + source + ". Aborting copy process..."));
}

TEST(CopyEngine, CopiesModeOwnerAndTimes) {
    QTemporaryDir dir;
    const QString source = TestFiles::write(dir.filePath("src.mov"), "attributes");
    const QByteArray path = QFile::encodeName(source);
    ASSERT_EQ(::chmod(path.constData(), 0640), 0);
    const bool root = ::geteuid() == 0;
    if (root) {
        ASSERT_EQ(::chown(path.constData(), 1234, 5678), 0);
    }
    const timespec times[2] = {{1'400'000'000, 5}, {1'500'000'000, 123456789}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.constData(), times, 0), 0);

    const QString copy = dir.filePath("copy.mov");
    const QString stuck = dir.filePath("stuck.mov");
    FaultyFileLayer layer;
    layer.failAttributes(stuck);
    SystemLog::Capture log;
    ASSERT_TRUE(QVFileManager::copyFileWithProgress(source, {copy, stuck}, VerificationType::None,
                                                    nullptr, {}, {}, layer));
    EXPECT_EQ(log.lines().filter("metadata"),
              QStringList({"Error setting metadata for file " + stuck}))
        << "an owner that can't be given is no failure";
    struct stat status {};
    ASSERT_EQ(::stat(QFile::encodeName(copy).constData(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    EXPECT_EQ(status.st_mtim.tv_sec, 1'500'000'000);
    EXPECT_EQ(status.st_mtim.tv_nsec, 123456789);
    struct stat sourceStatus {};
    ASSERT_EQ(::stat(path.constData(), &sourceStatus), 0);
    EXPECT_EQ(status.st_atim.tv_sec, sourceStatus.st_atim.tv_sec) << "as the source has it after";
    if (root) {
        EXPECT_EQ(status.st_uid, 1234u);
        EXPECT_EQ(status.st_gid, 5678u);
    }
}
