// "Verified" only when every copy was read back from its medium, on real cards and real file
// systems: a medium that stores something else than it is given, a disk whose backing store
// runs out, a card pulled before and during its transfer, a destination that fills up.
#include <gtest/gtest.h>
#include <signal.h>

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <thread>

#include "AppController.h"
#include "CardTest.h"
#include "CliRunner.h"
#include "FaultyFileLayer.h"
#include "FileLayer.h"
#include "ManifestVerifier.h"
#include "Preferences.h"
#include "QVTask.h"
#include "RecordingAppView.h"
#include "SettingsStore.h"
#include "SystemClock.h"
#include "TestFiles.h"
#include "TestMount.h"
#include "TestServices.h"
#include "WaitUntil.h"

namespace {

constexpr qint64 MiB = 1024 * 1024;

// The FUSE process serving a card: killing it is the closest thing to pulling the card out
// (every read of it fails at once, open files included).
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

// One controller with settings of its own, transferring to the given folders.
class Controller {
  public:
    Controller(const QString& settingsPath, FileLayer& layer, const QStringList& destinations)
        : settings_(settingsPath),
          services_(notifier_, layer),
          controller_(settings_, view_, services_.bundle()) {
        Preferences(settings_).registerAndMigrate();
        std::vector<DestinationEntry> list;
        for (const QString& destination : destinations)
            list.push_back({1, destination});
        controller_.setDestinationList(list);
    }
    std::shared_ptr<QVVolume> list(const QString& name, const QString& path) {
        auto volume = QVVolume::volumeWithName(name, path, 5, settings_, SystemClock::shared());
        controller_.setDataArray({volume});
        return volume;
    }
    /// Starts the volume's transfer and waits for its end (after whileRunning, if given).
    void transfer(const std::shared_ptr<QVVolume>& volume,
                  const std::function<void()>& whileRunning = {}) {
        const qsizetype before = view_.events().filter("ended: ").size();
        controller_.addVolumeToQueue(volume);
        if (whileRunning)
            whileRunning();
        EXPECT_TRUE(waitUntil([&] { return view_.events().filter("ended: ").size() > before; }));
        drainWorkers();
    }

  private:
    SettingsStore settings_;
    RecordingAppView view_;
    RecordingNotifier notifier_;
    TestServices services_;
    AppController controller_;
};

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

TEST_F(VerifiedOffloadE2E, ADiskWhoseBackingStoreRunsOutIsNeverVerified) {
    if (const QString reason = TestMount::unavailableReason(TestMount::Kind::Ext4);
        !reason.isEmpty())
        GTEST_SKIP() << "no loop disks: " << reason.toStdString();
    const auto card = mountCard("B001");
    ASSERT_TRUE(card);
    writeClips(*card, "B001", 3, 12 * MiB);
    TestMount disk(workPath("thin"), TestMount::disk(48 * MiB, 12 * MiB));
    ASSERT_TRUE(disk.ok()) << disk.error().toStdString();

    const CliRunner::Run run = CliRunner::run(
        {"offload", card->mountPoint(), "--dest", disk.mountPoint(), "--dest", workPath("disk")});
    EXPECT_EQ(run.status, 1) << run.output.toStdString();
    EXPECT_FALSE(run.output.contains("Verdict: verified"));
    const QStringList folders = run.destinations();
    ASSERT_EQ(folders.size(), 2);
    EXPECT_TRUE(run.output.contains(QRegularExpression("Failed: /CLIP/B001C00[1-3].MXF on " +
                                                       QRegularExpression::escape(folders[0]))))
        << run.output.toStdString();
    EXPECT_EQ(CliRunner::run({"verify", folders[1]}).status, 0);
}

TEST_F(VerifiedOffloadE2E, APulledCardFailsBeforeAndDuringItsTransfer) {
    const auto card = mountCard("C001");
    ASSERT_TRUE(card);
    const QString clip = card->mountPoint() + "/CONTENTS/CLIP/C001C001.MXF";
    TestFiles::write(clip, TestFiles::randomBytes(48 * MiB, 3));
    TestFiles::write(card->mountPoint() + "/CONTENTS/CLIP/C001C002.MXF", "later");
    FaultyFileLayer layer;
    Controller controller(workPath("settings.plist"), layer, {workPath("disk")});

    // Pulled after it was listed, before its turn: what is left at the mount point is no card.
    const auto gone = controller.list("C001", card->mountPoint());
    ASSERT_TRUE(card->unmount());
    controller.transfer(gone);
    EXPECT_EQ(gone->statusText(), "Error: Volume doesn't exist");

    // Pulled mid-clip: the reads fail, the clip is named, the card said to be missing.
    ASSERT_TRUE(card->remount());
    layer.slowReads(clip, 60);
    const auto pulled = controller.list("C001", card->mountPoint());
    controller.transfer(pulled, [&] {
        ASSERT_TRUE(waitUntil([&] {
            const QString copy =
                pulled->destinations().value(0) + "/CONTENTS/CLIP/.C001C001.MXF.cardsweep-part";
            return QFileInfo(copy).size() >= 8 * MiB;
        }));
        const pid_t fuse = fuseProcessOf(*card);
        ASSERT_GT(fuse, 0);
        ::kill(fuse, SIGKILL);
    });
    EXPECT_EQ(pulled->status(), QVVolume::Failed);
    const auto ledger = pulled->ledger();
    ASSERT_TRUE(ledger);
    EXPECT_EQ(ledger->interruption(), "the card was removed before every file was copied");
    const auto failures = ledger->failures();
    ASSERT_FALSE(failures.empty());
    EXPECT_EQ(failures.front().path, "/CONTENTS/CLIP/C001C001.MXF");
    EXPECT_TRUE(failures.front().reason.startsWith("read error at byte "))
        << failures.front().reason.toStdString();
    const auto report =
        ManifestVerifier::verify(pulled->destinations().value(0), FileLayer::posix());
    EXPECT_TRUE(report.manifestFound);
    EXPECT_FALSE(report.ok());
    EXPECT_FALSE(QFileInfo::exists(pulled->destinations().value(0) + "/CONTENTS/CLIP/C001C001.MXF"))
        << "a clip cut short never has its own name";
}

TEST_F(VerifiedOffloadE2E, ACardTooLargeForADestinationIsRefusedBeforeAByteIsWritten) {
    if (const QString reason = TestMount::unavailableReason(TestMount::Kind::Ext4);
        !reason.isEmpty())
        GTEST_SKIP() << "no loop disks: " << reason.toStdString();
    const auto card = mountCard("D001");
    ASSERT_TRUE(card);
    writeClips(*card, "D001", 3, 8 * MiB);
    TestMount small(workPath("small"), TestMount::disk(16 * MiB));
    ASSERT_TRUE(small.ok()) << small.error().toStdString();

    // Asked for at the command line, a card that can't fit is refused before a byte is written.
    const CliRunner::Run refused = CliRunner::run(
        {"offload", card->mountPoint(), "--dest", workPath("disk"), "--dest", small.mountPoint()});
    EXPECT_EQ(refused.status, 2);
    EXPECT_TRUE(refused.output.contains("not enough free space for this card"))
        << refused.output.toStdString();
    EXPECT_FALSE(QFileInfo::exists(workPath("disk")));
    EXPECT_EQ(QDir(small.mountPoint()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
              QStringList({"lost+found"}));
}

// Stopped by a signal while bytes flow to a slow medium: on SIGINT and SIGTERM the copy ends
// where it stands, every folder is marked, what is complete where is printed, and the status
// is 128 + the signal; after SIGKILL nothing can be marked, yet nothing half-written passes a
// check. Either way the next offload of the card completes and verifies.
class InterruptedOffloadE2E : public CardTest, public ::testing::WithParamInterface<int> {};

TEST_P(InterruptedOffloadE2E, LeavesNothingThatPassesAndTheNextOffloadVerifies) {
    if (const QString reason = TestMount::unavailableReason(TestMount::Kind::Lying);
        !reason.isEmpty())
        GTEST_SKIP() << "no slow medium: " << reason.toStdString();
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
    ::kill(cli.processIdentifier(), GetParam());
    cli.waitUntilExit();
    reader.join();
    const CliRunner::Run run{cli.terminationStatus(), QString::fromUtf8(output)};
    ASSERT_TRUE(flowing) << run.output.toStdString();
    EXPECT_EQ(run.status, 128 + GetParam()) << run.output.toStdString();
    // Killed, it names no folder: they are where its clips were growing, in FOLDER/CLIP.
    QStringList folders;
    for (const QString& root : {slow.mountPoint(), workPath("disk")}) {
        QDirIterator parts(root, {"*.cardsweep-part"}, QDir::Files | QDir::Hidden,
                           QDirIterator::Subdirectories);
        while (parts.hasNext())
            folders << QFileInfo(QFileInfo(parts.next()).path()).path();
    }
    folders.removeDuplicates();
    EXPECT_FALSE(folders.isEmpty());
    if (GetParam() != SIGKILL) {
        EXPECT_TRUE(run.output.contains("Verdict: NOT complete")) << run.output.toStdString();
        folders = run.destinations();
        ASSERT_EQ(folders.size(), 2) << run.output.toStdString();
    }
    for (const QString& folder : folders) {
        const auto check = ManifestVerifier::verify(folder, FileLayer::posix());
        EXPECT_FALSE(check.ok()) << folder.toStdString();
        EXPECT_NE(CliRunner::run({"verify", folder}).status, 0) << folder.toStdString();
        if (GetParam() != SIGKILL) {
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

INSTANTIATE_TEST_SUITE_P(Signals, InterruptedOffloadE2E,
                         ::testing::Values(SIGINT, SIGTERM, SIGKILL), [](const auto& info) {
                             return std::string(info.param == SIGINT    ? "SIGINT"
                                                : info.param == SIGTERM ? "SIGTERM"
                                                                        : "SIGKILL");
                         });
