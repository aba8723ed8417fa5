// Whole file-mode transfers through the controller's own copy, verification and completion.
#include <gtest/gtest.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include "AppController.h"
#include "FaultyFileLayer.h"
#include "OffloadFixture.h"
#include "Preferences.h"
#include "QVVolume.h"
#include "RecordingAppView.h"
#include "SettingsStore.h"
#include "SystemClock.h"
#include "TestFiles.h"
#include "VolumeVerification.h"
#include "WaitUntil.h"

class OffloadTest : public OffloadFixture {};

// Two cards at once, and one of nothing but litter.
TEST_F(OffloadTest, EveryDestinationHoldsTheCardAndAManifestThatAgreesWithTheFiles) {
    makeController();
    const auto volume = card("A001");
    const auto second = card("B001");
    const QString empty = work_.filePath("cards/EMPTY");
    TestFiles::write(empty + "/.Trashes/x", "x");
    TestFiles::write(empty + "/.fseventsd/y", "y");
    const auto litter =
        QVVolume::volumeWithName("EMPTY", empty, 0, settings_, SystemClock::shared());
    const auto before = TestFiles::tree(volume->path());
    view_.setSelectedRows({0});
    ASSERT_TRUE(offload({volume, second, litter}));
    drainWorkers();  // past the post actions, which pass through "Finishing..."
    EXPECT_TRUE(waitUntil([&] { return view_.toolbar().eraseEnabled; }))
        << "Erase is offered once the selected card's transfer ends verified";
    for (const auto& each : {volume, second, litter}) {
        EXPECT_EQ(each->status(), QVVolume::Done) << each->name().toStdString();
        EXPECT_EQ(view_.count("ended: " + each->name() + ": Done"), 1) << "heard of once";
    }
    for (const QString& destination : litter->destinations())
        EXPECT_EQ(TestFiles::read(destination + "/checksums.txt"), "");

    const auto copied = TestFiles::tree(volume->path(), kNotCopied);
    const QStringList sidecars = {"checksums.txt", "checksums.md5", "ascmhl",
                                  "Transfer Report.html"};
    ASSERT_EQ(volume->destinations().size(), 2);
    for (const QString& destination : volume->destinations() + second->destinations()) {
        EXPECT_TRUE(destination.startsWith(work_.filePath("dest")));
        EXPECT_EQ(TestFiles::tree(destination, sidecars), copied);  // B001 is made as A001
        const QStringList lines = QString::fromUtf8(TestFiles::read(destination + "/checksums.txt"))
                                      .split(u'\n', Qt::SkipEmptyParts);
        EXPECT_EQ(lines.size(), 4);  // by file name: the two A001C001 files give one line
    }
    // The card gains its done-marker and nothing else.
    auto after = TestFiles::tree(volume->path());
    EXPECT_EQ(after.erase("/.cardsweep"), 1u);
    EXPECT_EQ(after, before);

    // Named entries only (".Trashes" is skipped), with no manifest and no outcome.
    volume->setDestinations({work_.filePath("files")});
    controller_->copyFilesWithSettings({{"CONTENTS", ".Trashes"}, volume});
    EXPECT_EQ(TestFiles::tree(work_.filePath("files")), copied);
    EXPECT_EQ(volume->status(), QVVolume::Copying);
}

TEST_F(OffloadTest, TransferOnABusyCardCancelsItAndConfirmAndRemoveLeavesNoFolderBehind) {
    FaultyFileLayer& layer = faultyLayer();
    layer.slowReads("/CONTENTS/CLIP/A001C002.MXF", 1000);
    makeController(layer);
    TestFiles::write(work_.filePath("dest one/Untitled Project/earlier card/keep.MXF"));
    const auto volume = card("A001");
    const auto before = TestFiles::tree(volume->path());
    controller_->setDataArray({volume});
    view_.setSelectedRows({0});
    controller_->transfer();
    ASSERT_TRUE(waitUntil([&] { return volume->destinations().size() == 2; }));
    const QStringList reserved = volume->destinations();

    view_.setSheetAnswer(0);
    controller_->transfer();
    EXPECT_EQ(volume->status(), QVVolume::Copying) << "\"Cancel\" leaves the transfer running";
    view_.setSheetAnswer(-1);
    controller_->transfer();
    EXPECT_EQ(view_.toolbar().transferLabel, "Transfer");
    EXPECT_TRUE(view_.toolbar().infoEnabled) << "only the Transfer item changes";
    drainWorkers();
    EXPECT_EQ(volume->status(), QVVolume::Cancelled);
    EXPECT_EQ(controller_->threadCount(), 0) << "its slot is given back once";
    for (const QString& folder : reserved)
        EXPECT_FALSE(QFileInfo::exists(folder)) << folder.toStdString();
    EXPECT_TRUE(QFileInfo::exists(work_.filePath("dest one/Untitled Project/earlier card")));
    EXPECT_EQ(TestFiles::tree(volume->path()), before);
    EXPECT_EQ(view_.count("ended: A001: Canceled"), 1);
}

TEST_F(OffloadTest, VerificationReadsEverythingBackAndCatchesLaterDamage) {
    FaultyFileLayer& layer = faultyLayer();
    makeController(layer);
    settings_.setObject(SettingsKey::verifyFileSizes, PropertyList(qint64(1)));
    settings_.setObject(SettingsKey::verifyFileChecksums, PropertyList(qint64(1)));
    const auto volume = card("A001");
    ASSERT_TRUE(offload({volume}));
    drainWorkers();
    ASSERT_EQ(volume->status(), QVVolume::Done);
    const QString clip = "/CONTENTS/CLIP/A001C002.MXF";
    const QString second = volume->destinations()[1] + clip;
    // Verifies again; the failure review count after it, or -1 if it passed.
    const auto reviewsAfterVerify = [&] {
        controller_->verifyVolume(volume);
        drainWorkers();
        return volume->statusText() ==
                       "Error: Verification failure: Source files do not match destination files"
                   ? view_.count("review")
                   : -1;
    };
    EXPECT_EQ(reviewsAfterVerify(), -1);
    EXPECT_NE(volume->status(), QVVolume::Failed) << volume->statusText().toStdString();
    EXPECT_EQ(volume->sourceChecksumDict().size(), 3u) << "hidden files are not compared";

    // Read again later, one copy gives a read error a megabyte in.
    layer.failReadsAfter(second, 1024 * 1024);
    EXPECT_EQ(reviewsAfterVerify(), 1);
    EXPECT_FALSE(volume->destChecksumDict().at(volume->destinations()[1]).contains(clip))
        << "a copy that can't be read has no digest to pass with";
    layer.failReadsAfter(second, -1);

    // One copy damaged without changing its size; then an extra file fails the sizes too.
    QFile file(second);
    ASSERT_TRUE(file.open(QIODevice::ReadWrite) && file.seek(1234) && file.write("X") == 1);
    file.close();
    EXPECT_EQ(reviewsAfterVerify(), 2);
    TestFiles::write(volume->destinations()[0] + "/EXTRA.MXF", "user file");
    EXPECT_EQ(reviewsAfterVerify(), 4) << "sizes, then digests";
}

TEST(OffloadWalks, ALinkCountsInSizesButNotInDigests) {
    QTemporaryDir dir;
    TestFiles::write(dir.filePath("card/A.MXF"), "media!");
    ASSERT_EQ(::symlink("A.MXF", QFile::encodeName(dir.filePath("card/link")).constData()), 0);
    TestFiles::write(dir.filePath("card/checksums.txt"), "left out");
    TestFiles::write(dir.filePath("card/CARD Archive.zip"), "left out");
    const VolumeVerification verification(FileLayer::posix(), {});
    const auto sizes = verification.fileSizeDictForFolder(dir.filePath("card"));
    ASSERT_TRUE(sizes);
    EXPECT_EQ(*sizes, (VolumeVerification::SizeMap{{"/A.MXF", 6}, {"/link", 5}}));
}

// Numbers are spent by transfers, not by listing; a card keeps its transfer's numbers when it
// is listed again after a restart, and two cards transferred together get a reel each.
TEST_F(OffloadTest, ReelsAreSpentByTransfersAndKeptByTheirCardAcrossRestarts) {
    makeController();
    for (const QString name : {"A", "B", "C"})
        card(name);
    services_.fakeDisks.set(workPath("cards/A"),
                            PropertyList::Dictionary{{"VolumeUUID", QStringLiteral("UUID-A")}});
    const auto list = [&](const QString& name) {
        const auto volume = controller_->addVolumeLocationToList(workPath("cards/" + name));
        drainWorkers();  // the done-marker check
        return volume;
    };
    const auto reel = [](const std::shared_ptr<QVVolume>& volume) {
        return volume->metadata().at("QVMetaReel");
    };
    auto a = list("A");
    auto b = list("B");
    EXPECT_EQ(reel(a) + reel(b), "11") << "listing spends nothing";
    controller_->addVolumeToQueue(a);
    ASSERT_TRUE(waitUntil([&] { return a->status() == QVVolume::Done; }));
    drainWorkers();
    EXPECT_TRUE(a->destinations().value(0).contains("/1/1/"));
    EXPECT_EQ(reel(b), "2") << "a card listed meanwhile shows the number it would get";

    makeController();  // a restart
    a = list("A");
    b = list("B");
    const auto c = list("C");
    EXPECT_EQ(reel(a) + reel(b) + reel(c), "122");
    EXPECT_EQ(a->status(), QVVolume::Done);
    ASSERT_TRUE(offload({b, c}));
    QStringList reels = {reel(b), reel(c)};
    reels.sort();
    EXPECT_EQ(reels.join(u','), "2,3");
    EXPECT_TRUE(b->destinations().value(0).contains("/1/" + reel(b) + "/"));
}

// With a check switched off, nothing a crew reads says "verified" for what wasn't.
struct ChecksCase {
    qint64 sizes;
    qint64 checksums;
    const char* status;
    bool verified;
};

class VerificationOffTest : public OffloadFixture,
                            public ::testing::WithParamInterface<ChecksCase> {};

TEST_P(VerificationOffTest, StatusAndReportSayOnlyWhatWasChecked) {
    const ChecksCase& checks = GetParam();
    settings_.setObject(SettingsKey::verifyFileSizes, PropertyList(checks.sizes));
    settings_.setObject(SettingsKey::verifyFileChecksums, PropertyList(checks.checksums));
    makeController();
    const auto volume = card("A001");
    ASSERT_TRUE(offload({volume}));
    drainWorkers();
    EXPECT_EQ(volume->statusText(), checks.status);
    EXPECT_EQ(volume->transferChecks().completeAndVerified, checks.verified);
    for (const QString& destination : volume->destinations()) {
        const QByteArray report = TestFiles::read(destination + "/Transfer Report.html");
        EXPECT_EQ(report.contains("read back from the media"), checks.verified);
        EXPECT_EQ(report.contains("complete and verified"), checks.verified);
    }
}

INSTANTIATE_TEST_SUITE_P(Settings, VerificationOffTest,
                         ::testing::Values(ChecksCase{0, 0, "Done (copied, not verified)", false},
                                           ChecksCase{1, 0, "Done (sizes checked)", false},
                                           ChecksCase{1, 1, "Done", true}));
