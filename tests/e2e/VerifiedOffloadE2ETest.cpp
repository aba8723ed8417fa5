// "Verified" only when every copy was read back from its medium, on real cards and real file
// systems: a medium that stores something else than it is given, a disk whose backing store
// runs out, a destination too small for the card, a transfer stopped or its card pulled.
#include <gtest/gtest.h>
#include <signal.h>

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <thread>

#include "CardTest.h"
#include "CliRunner.h"
#include "FileLayer.h"
#include "ManifestVerifier.h"
#include "QVTask.h"
#include "TestFiles.h"
#include "TestMount.h"
#include "WaitUntil.h"

namespace {

constexpr qint64 MiB = 1024 * 1024;

// The FUSE process serving a card: killing it is the closest thing to pulling the card out.
pid_t fuseProcessOf(const TestMount& card) {
    for (const QString& entry : QDir("/proc").entryList(QDir::Dirs)) {
        QFile cmdline("/proc/" + entry + "/cmdline");
        if (!cmdline.open(QIODevice::ReadOnly))
            continue;
        const QList<QByteArray> arguments = cmdline.readAll().split('\0');
        if (arguments.value(0).endsWith("mount.exfat-fuse") &&
            arguments.contains(QFile::encodeName(card.device())))
            return pid_t(entry.toInt());
    }
    return 0;
}

// Clips of random bytes on the card, named PREFIXC001.MXF... under /CLIP.
void writeClips(const TestMount& card, const QString& prefix, int count, qint64 size) {
    for (int clip = 1; clip <= count; ++clip)
        TestFiles::write(
            card.mountPoint() + QStringLiteral("/CLIP/%1C00%2.MXF").arg(prefix).arg(clip),
            TestFiles::randomBytes(size, quint32(clip)));
}

// Every file under its own name in the copy holds the card's bytes; temporary names are hidden.
void expectNoNamedFileDiffers(const QString& card, const QString& copy) {
    const auto original = TestFiles::tree(card);
    for (const auto& [path, bytes] : TestFiles::tree(copy, {"ascmhl"})) {
        if (path.contains("/.") || path == "/checksums.txt" || path == "/checksums.md5" ||
            path == "/Transfer Report.html")
            continue;
        const auto found = original.find(path);
        EXPECT_TRUE(found != original.end() && found->second == bytes) << path.toStdString();
    }
}

}  // namespace

class VerifiedOffloadE2E : public CardTest {};

TEST_F(VerifiedOffloadE2E, AMediumThatStoresSomethingElseIsCaughtOnlyByReadingItBack) {
    if (const QString reason = TestMount::unavailableReason(TestMount::Kind::Lying);
        !reason.isEmpty())
        GTEST_SKIP() << "no lying medium: " << reason.toStdString();
    const auto card = mountCard("A001");
    ASSERT_TRUE(card);
    TestFiles::write(card->mountPoint() + "/CONTENTS/CLIP/A001C001.MXF",
                     TestFiles::randomBytes(8 * MiB, 1));
    TestFiles::write(card->mountPoint() + "/CONTENTS/CLIP/A001C001M01.XML", "<xml/>");
    TestMount lying(workPath("lying"), TestMount::lying(MiB + 5, "A001C001.MXF"));
    ASSERT_TRUE(lying.ok()) << lying.error().toStdString();

    const CliRunner::Run run = CliRunner::run(
        {"offload", card->mountPoint(), "--dest", lying.mountPoint(), "--dest", workPath("disk")});
    EXPECT_EQ(run.status, 1) << run.output.toStdString();
    const QStringList folders = run.destinations();
    ASSERT_EQ(folders.size(), 2) << run.output.toStdString();
    EXPECT_TRUE(run.output.contains("Failed: /CONTENTS/CLIP/A001C001.MXF on " + folders[0] +
                                    ": read back different from the card"))
        << run.output.toStdString();
    EXPECT_TRUE(run.output.contains("  complete: 2 files")) << "the honest disk is complete";
    EXPECT_EQ(CliRunner::run({"verify", folders[0]}).status, 1);
    EXPECT_EQ(CliRunner::run({"verify", folders[1]}).status, 0);

    // Checked only as it is written, the lie passes; a later check from the medium finds it.
    const CliRunner::Run blind =
        CliRunner::run({"offload", card->mountPoint(), "--dest", lying.mountPoint(), "--inline"});
    EXPECT_EQ(blind.status, 0) << blind.output.toStdString();
    EXPECT_TRUE(blind.output.contains("Verdict: verified, inline, not read back from the media"));
    const CliRunner::Run later = CliRunner::run({"verify", blind.destinations().value(0)});
    EXPECT_EQ(later.status, 1);
    EXPECT_TRUE(later.output.contains("differs: CONTENTS/CLIP/A001C001.MXF"))
        << later.output.toStdString();
}

// An ext4 disk that shows 48 MiB but has 12 MiB behind it: a card larger than it shows is
// refused before a byte is written anywhere; one that fits what it shows but not what is behind
// it fails at writeback, and only the other destination is complete.
TEST_F(VerifiedOffloadE2E, ADiskTooSmallIsRefusedAndOneWhoseBackingStoreRunsOutIsNeverVerified) {
    if (const QString reason = TestMount::unavailableReason(TestMount::Kind::Ext4);
        !reason.isEmpty())
        GTEST_SKIP() << "no loop disks: " << reason.toStdString();
    const auto card = mountCard("B001");
    ASSERT_TRUE(card);
    writeClips(*card, "B001", 4, 12 * MiB);
    TestMount disk(workPath("thin"), TestMount::disk(48 * MiB, 12 * MiB));
    ASSERT_TRUE(disk.ok()) << disk.error().toStdString();
    const QStringList offload = {"offload",        card->mountPoint(), "--dest",
                                 workPath("disk"), "--dest",           disk.mountPoint()};

    const CliRunner::Run refused = CliRunner::run(offload);
    EXPECT_EQ(refused.status, 2);
    EXPECT_TRUE(refused.output.contains("not enough free space for this card"))
        << refused.output.toStdString();
    EXPECT_FALSE(QFileInfo::exists(workPath("disk")));
    EXPECT_EQ(QDir(disk.mountPoint()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
              QStringList({"lost+found"}));

    ASSERT_TRUE(QFile::remove(card->mountPoint() + "/CLIP/B001C004.MXF"));
    const CliRunner::Run run = CliRunner::run(offload);
    EXPECT_EQ(run.status, 1) << run.output.toStdString();
    EXPECT_FALSE(run.output.contains("Verdict: verified"));
    const QStringList folders = run.destinations();
    ASSERT_EQ(folders.size(), 2);
    EXPECT_TRUE(run.output.contains(QRegularExpression("Failed: /CLIP/B001C00[1-3].MXF on " +
                                                       QRegularExpression::escape(folders[1]))))
        << run.output.toStdString();
    EXPECT_EQ(CliRunner::run({"verify", folders[0]}).status, 0);
}

// Stopped while bytes flow to a slow medium: on SIGINT and SIGTERM the copy ends where it
// stands, every folder is marked, what is complete where is printed, and the status is 128 + the
// signal; after SIGKILL nothing can be marked, yet nothing half-written passes a check; a card
// pulled (0 here: its FUSE process killed, so every read fails at once) names the clips it kept
// and is said to be removed. Either way the next offload of the card completes and verifies.
class InterruptedOffloadE2E : public CardTest, public ::testing::WithParamInterface<int> {};
constexpr int kPulled = 0;

TEST_P(InterruptedOffloadE2E, LeavesNothingThatPassesAndTheNextOffloadVerifies) {
    if (const QString reason = TestMount::unavailableReason(TestMount::Kind::Lying);
        !reason.isEmpty())
        GTEST_SKIP() << "no slow medium: " << reason.toStdString();
    const int stop = GetParam();
    const auto card = mountCard("E001");
    ASSERT_TRUE(card);
    writeClips(*card, "E001", 3, 16 * MiB);
    TestMount slow(workPath("slow"), TestMount::lying(-1));  // honest here, just slow
    ASSERT_TRUE(slow.ok()) << slow.error().toStdString();
    const QStringList offload = {"offload",         card->mountPoint(), "--dest",
                                 slow.mountPoint(), "--dest",           workPath("disk")};

    QVTask cli({QStringLiteral(CARDSWEEP_CLI_PATH), offload, std::nullopt, QVTask::Channel::Inherit,
                QVTask::Channel::Pipe, QVTask::Channel::NullDevice});
    cli.launch();
    QByteArray output;
    std::thread reader([&] {
        for (QByteArray piece = cli.readOutput(); !piece.isEmpty(); piece = cli.readOutput())
            output += piece;
    });
    const bool flowing = waitUntil([&] {
        QDirIterator parts(slow.mountPoint(), {"*.cardsweep-part"}, QDir::Files | QDir::Hidden,
                           QDirIterator::Subdirectories);
        return parts.hasNext() && QFileInfo(parts.next()).size() > 0;
    });
    const pid_t target = stop == kPulled ? fuseProcessOf(*card) : cli.processIdentifier();
    EXPECT_GT(target, 0);
    if (target > 0)
        ::kill(target, stop == kPulled ? SIGKILL : stop);
    cli.waitUntilExit();
    reader.join();
    const CliRunner::Run run{cli.terminationStatus(), QString::fromUtf8(output)};
    ASSERT_TRUE(flowing) << run.output.toStdString();
    EXPECT_EQ(run.status, stop == kPulled ? 1 : 128 + stop) << run.output.toStdString();
    if (stop == kPulled) {
        EXPECT_TRUE(run.output.contains(QRegularExpression("Failed: /CLIP/E001C00[1-3].MXF: ")))
            << run.output.toStdString();
        EXPECT_TRUE(
            run.output.contains("Interrupted: the card was removed before every file was copied"));
        ASSERT_TRUE(card->unmount() && card->remount()) << card->error().toStdString();
    }
    // Killed, it names no folder: they are where its clips were growing, in FOLDER/CLIP.
    QStringList folders;
    for (const QString& root : {slow.mountPoint(), workPath("disk")}) {
        QDirIterator parts(root, {"*.cardsweep-part"}, QDir::Files | QDir::Hidden,
                           QDirIterator::Subdirectories);
        while (parts.hasNext())
            folders << QFileInfo(QFileInfo(parts.next()).path()).path();
    }
    folders.removeDuplicates();
    EXPECT_TRUE(stop == kPulled || !folders.isEmpty());  // a pulled card's partial copies go
    if (stop != SIGKILL) {
        EXPECT_TRUE(
            run.output.contains(stop == kPulled ? "Verdict: FAILED" : "Verdict: NOT complete"))
            << run.output.toStdString();
        folders = run.destinations();
        ASSERT_EQ(folders.size(), 2) << run.output.toStdString();
    }
    for (const QString& folder : folders) {
        const auto check = ManifestVerifier::verify(folder, FileLayer::posix());
        EXPECT_FALSE(check.ok()) << folder.toStdString();
        EXPECT_NE(CliRunner::run({"verify", folder}).status, 0) << folder.toStdString();
        if (stop != SIGKILL) {
            EXPECT_FALSE(check.incomplete.isEmpty()) << "the manifest says INCOMPLETE";
            EXPECT_TRUE(TestFiles::read(folder + "/Transfer Report.html").contains("NOT complete"));
        }
        expectNoNamedFileDiffers(card->mountPoint(), folder);
    }

    const CliRunner::Run again = CliRunner::run(offload);
    EXPECT_EQ(again.status, 0) << again.output.toStdString();
    ASSERT_EQ(again.destinations().size(), 2) << again.output.toStdString();
    for (const QString& folder : again.destinations()) {
        EXPECT_FALSE(folders.contains(folder)) << "a new folder, not the half-written one";
        EXPECT_EQ(CliRunner::run({"verify", folder}).status, 0) << folder.toStdString();
    }
}

INSTANTIATE_TEST_SUITE_P(Stops, InterruptedOffloadE2E,
                         ::testing::Values(SIGINT, SIGTERM, SIGKILL, kPulled),
                         [](const auto& info) {
                             return std::string(info.param == SIGINT    ? "SIGINT"
                                                : info.param == SIGTERM ? "SIGTERM"
                                                : info.param == SIGKILL ? "SIGKILL"
                                                                        : "CardPulled");
                         });
