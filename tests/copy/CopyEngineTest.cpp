// The copy engine: every byte to every destination with digests that agree with the system's
// tools, progress and cancelling, failure paths that protect data, and copied attributes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <chrono>
#include <mutex>
#include <optional>

#include "CopyEngine.h"
#include "FaultyFileLayer.h"
#include "FileHash.h"
#include "FileLayer.h"
#include "MediaReadBack.h"
#include "QVFileManager.h"
#include "QVTaskEx.h"
#include "SystemLog.h"
#include "TestFiles.h"

namespace {

constexpr std::uint64_t MiB = 1024 * 1024;

QString partialOf(const QString& copy) {
    return QFile::decodeName(CopyEngine::partialPathFor(QFile::encodeName(copy)));
}

// Records every message, in order; can cancel at the n-th question. Copies checked from their
// medium are settled on the read-back's threads, so the record is kept under a lock; the test
// reads it once the work is done.
class RecordingDelegate : public CopyDelegate {
  public:
    explicit RecordingDelegate(int cancelAt = -1) : cancelAt_(cancelAt) {}

    void fileCopyBytesWritten(std::uint64_t bytes, const std::shared_ptr<CopyInfo>&) override {
        record(QStringLiteral("bytes %1").arg(bytes));
    }
    bool fileCopyShouldContinue(const std::shared_ptr<CopyInfo>&) override {
        record("continue?");
        return ++questions != cancelAt_;
    }
    void fileCopyVerificationFailed(const std::shared_ptr<CopyInfo>& info,
                                    const QString& file) override {
        record("failed " + QFileInfo(file).fileName(), info->destChecksum.value_or(QString()));
    }
    void fileCopyFinished(const std::shared_ptr<CopyInfo>& info) override {
        record("finished");
        const std::lock_guard lock(mutex_);
        finished = info;
    }
    void fileCopyProblem(const std::shared_ptr<CopyInfo>&, int destination,
                         const QString& reason) override {
        const std::lock_guard lock(mutex_);
        problems << QStringLiteral("%1: %2").arg(destination).arg(reason);
    }

    QStringList events;
    QStringList problems;
    QStringList failedChecksums;
    std::shared_ptr<CopyInfo> finished;
    int questions = 0;

  private:
    void record(const QString& event, const std::optional<QString>& failedChecksum = {}) {
        const std::lock_guard lock(mutex_);
        events << event;
        if (failedChecksum)
            failedChecksums << *failedChecksum;
    }

    std::mutex mutex_;
    const int cancelAt_;
};

}  // namespace

// Sizes either side of the engine's block, so both the inline and the threaded paths run, and
// data ending on a 32 KiB pass boundary, which makes one empty pass.
TEST(CopyEngine, EveryDestinationGetsEveryByteWithMatchingDigests) {
    QTemporaryDir dir;
    struct Case {
        qint64 size;
        int destinations;
        VerificationType type;
        const char* tool;
    };
    for (const Case& c : {Case{9 * MiB + 5, 3, VerificationType::MD5, "/usr/bin/md5sum"},
                          Case{100 * 1024 + 1, 2, VerificationType::SHA1, "/usr/bin/sha1sum"},
                          Case{0, 1, VerificationType::MD5, "/usr/bin/md5sum"},
                          Case{3 * 32768, 1, VerificationType::MD5, "/usr/bin/md5sum"},
                          Case{3 * 32768 + 1, 1, VerificationType::MD5, "/usr/bin/md5sum"},
                          Case{8 * MiB, 1, VerificationType::MD5, "/usr/bin/md5sum"}}) {
        SCOPED_TRACE(c.size);
        const QString source = TestFiles::write(
            dir.filePath(QStringLiteral("card/CLIP/A001 'x' $(y) %1.mov").arg(c.size)),
            TestFiles::randomBytes(c.size, quint32(c.size)));
        QStringList destinations;
        for (int d = 0; d < c.destinations; ++d)
            destinations << dir.filePath(
                QStringLiteral("dest%1/%2/new folder/A001.mov").arg(d).arg(c.size));
        RecordingDelegate delegate;
        SystemLog::Capture log;
        ASSERT_TRUE(QVFileManager(FileLayer::posix())
                        .copyFileWithProgress(source, destinations, c.type, &delegate, std::any(7),
                                              std::any()));
        for (const QString& destination : destinations)
            EXPECT_EQ(TestFiles::read(destination), TestFiles::read(source));
        EXPECT_EQ(log.count(source + " returned 0 bytes"), c.size % 32768 == 0 ? 1 : 0);

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

TEST(CopyEngine, ReportsEvery40MiBAndCancelsAtTheAnswer) {
    QTemporaryDir dir;
    const QString source = TestFiles::sparse(dir.filePath("big.mxf"), qint64(100 * MiB + 3));
    RecordingDelegate delegate;
    ASSERT_TRUE(QVFileManager(FileLayer::posix())
                    .copyFileWithProgress(source, {dir.filePath("copy.mxf")},
                                          VerificationType::None, &delegate));
    EXPECT_EQ(delegate.events,
              QStringList({QStringLiteral("bytes %1").arg(40 * MiB), "continue?",
                           QStringLiteral("bytes %1").arg(80 * MiB), "continue?",
                           QStringLiteral("bytes %1").arg(100 * MiB + 3), "finished"}));
    EXPECT_FALSE(delegate.finished->sourceChecksum) << "no digests without verification";
    EXPECT_FALSE(delegate.finished->destChecksums);

    RecordingDelegate canceller(1);
    const QStringList copies = {dir.filePath("a/part.mxf"), dir.filePath("b/part.mxf")};
    EXPECT_FALSE(QVFileManager(FileLayer::posix())
                     .copyFileWithProgress(source, copies, VerificationType::MD5, &canceller));
    EXPECT_EQ(canceller.events,
              QStringList({QStringLiteral("bytes %1").arg(40 * MiB), "continue?"}));
    for (const QString& copy : copies) {
        EXPECT_FALSE(QFileInfo::exists(copy)) << "a stopped copy never takes its own name";
        EXPECT_EQ(QFileInfo(partialOf(copy)).size(), qint64(40 * MiB))
            << "partial files hold what was told";
    }
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
    ASSERT_TRUE(QVFileManager(layer).copyFileWithProgress(
        source, {full, good, corrupt, unreadable}, VerificationType::SHA1, &delegate, {}, {}));
    // A disk that refuses a pass gets nothing more of the file: one line, and the reason told.
    // A pass that can't be read back is told pass by pass, in pass and destination order.
    const QString writeError = "Error writing file " + full + ": 1";
    const QString seekError = "Error: unable to seek within file " + unreadable;
    const QStringList lines = log.lines();
    EXPECT_EQ(lines.count(writeError), 1);
    EXPECT_EQ(lines.count(seekError), 97) << "passes 288 to 384";
    EXPECT_EQ(lines.mid(0, 6),
              QStringList({writeError, seekError, "cur pos: 9437184", "read size: 32768",
                           QStringLiteral("errno: %1").arg(EIO), "err: 1"}));
    EXPECT_EQ(delegate.problems, QStringList({"0: can't be written: No space left on device"}));
    EXPECT_EQ(delegate.events.filter("failed"),
              QStringList({"failed disk.mov", "failed ram.mov", "failed back.mov"}));
    const CopyInfo& info = *delegate.finished;
    EXPECT_EQ(info.destChecksums->at(1), *info.sourceChecksum);
    EXPECT_EQ(delegate.failedChecksums,
              QStringList({info.destChecksums->at(0), info.destChecksums->at(2),
                           info.destChecksums->at(3)}));
    EXPECT_EQ(TestFiles::read(good), bytes);
    // A damaged copy keeps its temporary name; its digest is that of what it really holds.
    for (const QString& damaged : {full, corrupt, unreadable})
        EXPECT_FALSE(QFileInfo::exists(damaged)) << qPrintable(damaged);
    EXPECT_EQ(info.destChecksums->at(0),
              FileSHA1HashCreateWithPath(partialOf(full), 4096, {}, FileLayer::posix()));
    EXPECT_EQ(info.destChecksums->at(2),
              FileSHA1HashCreateWithPath(partialOf(corrupt), 4096, {}, FileLayer::posix()));
    EXPECT_EQ(QFileInfo(partialOf(full)).size(), qint64(5 * MiB + 1));
    EXPECT_EQ(info.destChecksum, info.destChecksums->at(3)) << "the record keeps the last failure";
}

// What can't be copied is refused with its line in the log; a destination that can't be made
// or opened is left out and the others still get the file.
TEST(CopyEngine, ChecksRefuseBeforeWritingAnything) {
    QTemporaryDir dir;
    const QString source = TestFiles::write(dir.filePath("src.mov"), "data");
    TestFiles::write(dir.filePath("plainfile"), "x");
    QDir().mkpath(dir.filePath("isafolder"));
    const QString gone = dir.filePath("gone.mov");
    const QString blocked = dir.filePath("plainfile/sub");
    FaultyFileLayer unreadable;
    unreadable.failOpens(source);
    struct Case {
        QString from;
        QStringList to;
        QString line;
        QStringList problems;
        FileLayer& layer = FileLayer::posix();
    };
    for (const Case& c :
         {Case{gone,
               {dir.filePath("o")},
               "Error: File " + gone + " doesn't exist.",
               {"-1: can't be read: No such file or directory"}},
          Case{source, {}, "Error: You must have at least one destination.", {}},
          Case{source,
               {dir.filePath("ok/a"), blocked + "/a"},
               "Unable to copy file " + source + " - destination directory " + blocked +
                   " doesn't exist.",
               {"1: its folder can't be made: Not a directory"}},
          Case{source,
               {dir.filePath("ok/b"), dir.filePath("isafolder")},
               "Error: Unable to open destination file " + dir.filePath("isafolder") + ".",
               {"1: can't be created: Is a directory"}},
          Case{source,
               {dir.filePath("ok/c")},
               "Error: Unable to read source file " + source + ".",
               {"-1: can't be read: Permission denied"},
               unreadable}}) {
        SCOPED_TRACE(c.line.toStdString());
        SystemLog::Capture log;
        RecordingDelegate delegate;
        EXPECT_FALSE(QVFileManager(c.layer).copyFileWithProgress(
            c.from, c.to, VerificationType::MD5, &delegate, {}, {}));
        EXPECT_TRUE(log.contains(c.line + " Aborting copy process..."));
        EXPECT_EQ(delegate.problems, c.problems);
        EXPECT_EQ(delegate.events.filter("failed"), QStringList()) << "no copy, so no mismatch";
        EXPECT_EQ(c.to.size() > 1 ? TestFiles::read(c.to.first()) : "data", "data");
    }
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
    ASSERT_TRUE(QVFileManager(layer).copyFileWithProgress(source, {copy, stuck},
                                                          VerificationType::None, nullptr, {}, {}));
    EXPECT_EQ(log.lines().filter("metadata"),
              QStringList({"Error setting metadata for file " + stuck}))
        << "an owner that can't be given is no failure";
    struct stat status {};
    ASSERT_EQ(::stat(QFile::encodeName(copy).constData(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    EXPECT_EQ(status.st_mtim.tv_sec, 1'500'000'000);
    EXPECT_EQ(status.st_mtim.tv_nsec, 123456789);
    if (root) {
        EXPECT_EQ(status.st_uid, 1234u);
        EXPECT_EQ(status.st_gid, 5678u);
    }
}

// Copies that can't be stored or read back are named, small files share their flushes, and
// the rest of the work goes on.
TEST(CopyEngine, ReadBackFailuresAreNamedAndSmallFilesShareAFlush) {
    QTemporaryDir dir;
    const QString rootA = dir.filePath("A");
    const QString rootB = dir.filePath("B");
    QDir().mkpath(rootA);
    QDir().mkpath(rootB);
    FaultyFileLayer layer;
    layer.failFlushes(rootA, EIO);
    layer.failReadsAfter(rootB + "/f7.xml", 100);
    MediaReadBack media(layer, DigestContext::Kind::SHA1,
                        {QFile::encodeName(rootA), QFile::encodeName(rootB)}, {});
    RecordingDelegate delegate;
    CopyEngine engine(layer, &delegate, &media);
    for (int i = 0; i < 300; ++i) {
        const QString source = TestFiles::write(dir.filePath(QStringLiteral("card/f%1.xml").arg(i)),
                                                TestFiles::randomBytes(4096 + i, quint32(i)));
        const QString name = QFileInfo(source).fileName();
        ASSERT_TRUE(engine.copy(source, {rootA + "/" + name, rootB + "/" + name},
                                VerificationType::SHA1, {}, {}));
    }
    ASSERT_TRUE(media.drain(std::chrono::minutes(1)));
    EXPECT_EQ(delegate.events.count("finished"), 300);
    EXPECT_EQ(
        delegate.problems.filter("0: can't be stored on its medium: Input/output error").size(),
        300);
    EXPECT_EQ(delegate.problems.filter(QRegularExpression("^1: ")),
              QStringList({"1: can't be read back at byte 100: Input/output error"}));
    EXPECT_LT(layer.fileSystemFlushes(), 100) << "flushed per batch, not per file (600)";

    // A large copy whose disk fills up part-way is named, and its read-back waits for the end
    // of the file instead of asking again and again for bytes that will never come.
    const QString large = TestFiles::sparse(dir.filePath("card/large.mxf"), qint64(70 * MiB));
    layer.failWritesAfter(rootB + "/large.mxf", qint64(10 * MiB));
    ASSERT_TRUE(engine.copy(large, {rootA + "/large.mxf", rootB + "/large.mxf"},
                            VerificationType::SHA1, {}, {}));
    ASSERT_TRUE(media.drain(std::chrono::minutes(1)));
    EXPECT_TRUE(delegate.problems.contains("1: can't be written: No space left on device"));
    EXPECT_EQ(delegate.finished->destChecksums->at(0), *delegate.finished->sourceChecksum);
    EXPECT_LT(layer.readsOf(rootB + "/large.mxf"), 40);
}
