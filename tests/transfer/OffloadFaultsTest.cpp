// Whole transfers meeting the faults a crew meets: a failing clip, a vanishing file, a pulled
// card, a full destination, names that aren't text, links of every kind, a second copy landing
// inside the first. Never a "Done" that isn't true, never a file lost without being named.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QSet>
#include <functional>

#include "ChecksumManifest.h"
#include "FakeClock.h"
#include "FaultyFileLayer.h"
#include "FileLayer.h"
#include "ManifestVerifier.h"
#include "MetadataField.h"
#include "OffloadFixture.h"
#include "Preferences.h"
#include "TestFiles.h"

namespace {

constexpr qint64 MiB = 1024 * 1024;
const QString kClip = QStringLiteral("/CONTENTS/CLIP/A001C002.MXF");

class OffloadFaultsTest : public OffloadFixture {
  protected:
    std::shared_ptr<TransferLedger> ledgerOf(const std::shared_ptr<QVVolume>& volume) {
        const auto ledger = volume->ledger();
        EXPECT_TRUE(ledger);
        return ledger ? ledger : std::make_shared<TransferLedger>(0);
    }
    QStringList failuresOf(const std::shared_ptr<QVVolume>& volume) {
        QStringList lines;
        auto failures = ledgerOf(volume)->failures();
        for (auto& damage : ledgerOf(volume)->damaged())
            failures.push_back(std::move(damage));
        for (const auto& failure : failures)
            lines << QStringLiteral("%1 @%2: %3")
                         .arg(QString::fromUtf8(failure.path))
                         .arg(failure.destination)
                         .arg(failure.reason);
        lines.sort();  // in the order the card was walked
        return lines;
    }
    QByteArray manifestOf(const QString& destination) {
        const QByteArray folder = QFile::encodeName(destination);
        return TestFiles::read(
            QFile::decodeName(folder + '/' + ChecksumManifest::find(FileLayer::posix(), folder)));
    }
};

// The card exactly as the file system holds it, less what a transfer leaves behind or out.
std::map<QByteArray, QByteArray> copiedTree(const QString& root) {
    return TestFiles::exactTree(
        QFile::encodeName(root),
        {".DS_Store", ".Trashes", ".cardsweep", "ascmhl", "Transfer Report.html",
         "checksums (Cardsweep).txt", "checksums.md5"});
}

// A copy's files under their own names: no temporary names, no manifest.
std::map<QByteArray, QByteArray> named(std::map<QByteArray, QByteArray> tree) {
    std::erase_if(tree, [](const auto& entry) {
        return entry.first.endsWith(".cardsweep-part") || entry.first == "/checksums.txt";
    });
    return tree;
}

// Nothing a copy holds under its own name differs from the card (or, `hiddenToo` false, nothing
// but hidden names: a transfer ended early may leave its temporaries).
void expectNoNamedFileDiffers(const std::map<QByteArray, QByteArray>& card, const QString& copy,
                              bool hiddenToo = true) {
    for (const auto& [path, bytes] : named(copiedTree(copy))) {
        const auto original = card.find(path);
        EXPECT_TRUE((!hiddenToo && path.contains("/.")) ||
                    (original != card.end() && original->second == bytes))
            << path.constData();
    }
}

}  // namespace

// One fault at a time on a card offloaded to two destinations, checked inline and read back
// from the media: the failure is named with its file, destination and reason, a destination
// the fault didn't touch is complete and verifies, nothing under its own name differs from the
// card, the damaged destination's manifest says so, and nothing is called verified.
struct Fault {
    const char* name;
    std::function<void(FaultyFileLayer&, const QString& card, const QString& two)> inject;
    const char* failure;      // part of a failure line: "PATH @DESTINATION: REASON"
    const char* manifest;     // a line of the damaged destinations' manifests
    bool cardFault;           // both destinations are damaged
    bool seenInline;          // checking each write as it is made finds it
    const char* lost;         // the one file a card fault keeps from every copy ("" if unknown)
    const char* status = "";  // the row's end, a pattern with TWO and ONE for the destinations
    const char* later = "";   // how every later failure of the damaged destination ends
    friend void PrintTo(const Fault& fault, std::ostream* os) { *os << fault.name; }
};

const Fault kFaults[] = {
    {"DiskFull",
     [](FaultyFileLayer& l, const QString&, const QString& two) {
         l.failWritesAfter(two + kClip, 3 * MiB);
     },
     "/CONTENTS/CLIP/A001C002.MXF @1: can't be written: No space left on device",
     "FAILED\tA001C002.MXF\n", false, true, "",
     // Full is named with its figures, and only once.
     "Error: No space left on TWO \\(needs .+ free\\); complete on ONE",
     "@1: not copied: the destination failed earlier: No space left on device"},
    {"NoRoomForAnything",
     [](FaultyFileLayer& l, const QString&, const QString& two) {
         l.failCreationsUnder(QFileInfo(two).path());
     },
     " @1: ", "", false, true, ""},
    {"WritesTakeNothing",
     [](FaultyFileLayer& l, const QString&, const QString& two) {
         l.stallWritesAfter(two + kClip, 3 * MiB);
     },
     "/CONTENTS/CLIP/A001C002.MXF @1: ", "FAILED\tA001C002.MXF\n", false, true, ""},
    {"WrittenDamaged",
     [](FaultyFileLayer& l, const QString&, const QString& two) {
         l.corruptWriteAt(two + kClip, 4 * MiB + 17);
     },
     "/CONTENTS/CLIP/A001C002.MXF @1: ", "FAILED\tA001C002.MXF\n", false, true, "",
     "Error: Verification failure: Source file sizes do not match destination file sizes"},
    {"MediumStoresOtherBytes",
     [](FaultyFileLayer& l, const QString&, const QString& two) {
         l.corruptOnMediumAt(two + kClip, 4 * MiB + 17);
     },
     "/CONTENTS/CLIP/A001C002.MXF @1: ", "FAILED\tA001C002.MXF\n", false, false, ""},
    {"FlushFails",
     [](FaultyFileLayer& l, const QString&, const QString& two) {
         l.failFlushes(two, EIO);  // the file system the copies are stored on
     },
     "/CONTENTS/CLIP/A001C002.MXF @1: can't be stored on its medium: Input/output error",
     "FAILED\tA001C002.MXF\n", false, false, ""},
    {"ManifestCantBeWritten",
     [](FaultyFileLayer& l, const QString&, const QString& two) {
         l.failCreationsNamed(QFile::encodeName(two + "/.checksums"));
     },
     "/checksums.txt @1: the manifest can't be written: create: No space left on device", "", false,
     true, ""},
    {"ManifestCantBeFlushed",
     [](FaultyFileLayer& l, const QString&, const QString& two) {
         l.failFlushesNamed(QFile::encodeName(two + "/.checksums"), EIO);
     },
     "/checksums.txt @1: the manifest can't be written: flush: Input/output error", "", false, true,
     ""},
    {"CardReadError",
     [](FaultyFileLayer& l, const QString& card, const QString&) {
         l.failReadsAfter(card + kClip, 2 * MiB);
     },
     "/CONTENTS/CLIP/A001C002.MXF @-1: read error at byte 2097152: Input/output error",
     "FAILED\tA001C002.MXF\n", true, true, "/CONTENTS/CLIP/A001C002.MXF"},
    {"FileVanishes",
     [](FaultyFileLayer& l, const QString& card, const QString&) {
         l.vanish(card + "/CONTENTS/PROXY/A001C001.MP4");
     },
     "/CONTENTS/PROXY/A001C001.MP4 @-1: vanished before it was copied: No such file or directory",
     "FAILED\tA001C001.MP4\n", true, true, "/CONTENTS/PROXY/A001C001.MP4"},
    {"CardPulled",
     [](FaultyFileLayer& l, const QString& card, const QString&) {
         l.pullCardAfter(card, 2 * MiB);
     },
     "", "INCOMPLETE\tthe card was removed before every file was copied\n", true, true, ""},
};

class FaultMatrixTest : public OffloadFaultsTest,
                        public testing::WithParamInterface<std::tuple<Fault, bool>> {};

TEST_P(FaultMatrixTest, TheFaultIsNamedTheUntouchedCopyVerifiesAndNothingElseIsCalledVerified) {
    const auto& [fault, readBack] = GetParam();
    settings_.setObject(SettingsKey::inlineVerification, PropertyList(qint64(readBack ? 0 : 1)));
    settings_.setObject(SettingsKey::metadata, PropertyList(PropertyList::Array()));
    FaultyFileLayer& layer = faultyLayer();
    makeController(layer);
    const auto volume = card("A001");
    fault.inject(layer, volume->path(), workPath("dest two/Untitled Project"));
    ASSERT_TRUE(offload({volume}));

    const QStringList destinations = volume->destinations();
    ASSERT_EQ(destinations.size(), 2) << volume->statusText().toStdString();
    const auto card = copiedTree(volume->path());
    for (const QString& destination : destinations)
        expectNoNamedFileDiffers(card, destination);
    if (!readBack && !fault.seenInline) {
        EXPECT_EQ(volume->status(), QVVolume::Done) << "checked as written, the lie goes unseen";
        EXPECT_FALSE(volume->transferChecks().fromMedium) << "and it is not said to be read back";
        return;
    }
    EXPECT_EQ(volume->status(), QVVolume::Failed) << volume->statusText().toStdString();
    const QString status = QString(fault.status)
                               .replace("TWO", QRegularExpression::escape(workPath("dest two")))
                               .replace("ONE", QRegularExpression::escape(workPath("dest one")));
    EXPECT_TRUE(status.isEmpty() ||
                QRegularExpression('^' + status + '$').match(volume->statusText()).hasMatch())
        << volume->statusText().toStdString();
    EXPECT_FALSE(volume->transferChecks().completeAndVerified);
    EXPECT_FALSE(QFileInfo::exists(volume->path() + "/.cardsweep")) << "a failed card isn't marked";
    EXPECT_FALSE(notifier_.posted().filter("Failed | A001").isEmpty()) << "the crew is told";
    const QStringList failures = failuresOf(volume);
    EXPECT_TRUE(failures.join('\n').contains(fault.failure)) << failures.join('\n').toStdString();
    if (*fault.later) {  // every other file of that destination, past the failed one
        const QString failed = QString(fault.failure).section(':', 0, 0);
        EXPECT_EQ(failures.count(fault.failure), 1);
        for (const QString& line : failures)
            EXPECT_TRUE(line.startsWith(failed) || line.endsWith(fault.later))
                << line.toStdString();
    }
    const auto ledger = ledgerOf(volume);
    EXPECT_EQ(ledger->isComplete(0), !fault.cardFault);
    EXPECT_FALSE(ledger->isComplete(1));
    for (int d = 0; d < 2; ++d) {
        const auto check = ManifestVerifier::verify(destinations[d], FileLayer::posix());
        if (d == 0 && !fault.cardFault) {
            EXPECT_TRUE(check.ok()) << "the untouched copy verifies";
            EXPECT_EQ(named(copiedTree(destinations[d])), card) << "and holds the card";
            continue;
        }
        EXPECT_FALSE(check.ok()) << "no manifest that passes on a damaged copy";
        EXPECT_TRUE(manifestOf(destinations[d]).contains(fault.manifest))
            << manifestOf(destinations[d]).toStdString();
        if (*fault.lost) {
            auto expected = card;
            expected.erase(fault.lost);
            EXPECT_EQ(named(copiedTree(destinations[d])), expected)
                << "every other file of the card arrived whole";
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Faults, FaultMatrixTest,
                         testing::Combine(testing::ValuesIn(kFaults), testing::Bool()),
                         [](const testing::TestParamInfo<std::tuple<Fault, bool>>& info) {
                             return std::string(std::get<0>(info.param).name) +
                                    (std::get<1>(info.param) ? "_ReadBack" : "_Inline");
                         });

// Every way a transfer ends early, while copies are still written and read back, and what its
// row then says.
struct EarlyEnd {
    const char* way;
    const char* ended;
    friend void PrintTo(const EarlyEnd& end, std::ostream* os) { *os << end.way; }
};

class EarlyEndTest : public OffloadFaultsTest, public ::testing::WithParamInterface<EarlyEnd> {};

TEST_P(EarlyEndTest, MarksEveryFolderAndNoFileUnderItsOwnNameDiffersFromTheCard) {
    FaultyFileLayer& layer = faultyLayer();
    makeController(layer);
    settings_.setObject(SettingsKey::metadata, PropertyList(PropertyList::Array()));
    const auto volume = card("A001");
    layer.slowReads(volume->path() + "/CONTENTS/CLIP/A001C002.MXF", 200);
    controller_->setDataArray({volume});
    controller_->addVolumeToQueue(volume);
    ASSERT_TRUE(waitUntil([&] { return volume->progressBar().doubleValue > 0; }));
    const std::string way = GetParam().way;
    if (way == "UserCancel") {  // as the window's Confirm does it
        volume->setStatus(QVVolume::Cancelled);
        controller_->cancelVolume(*volume);
    } else if (way == "CardPulled") {
        controller_->volumeDidUnmount(volume->path());
    } else {  // the command line on SIGINT or SIGTERM
        ASSERT_TRUE(controller_->stopRunningTransfers());
    }
    const QString ended = GetParam().ended;
    ASSERT_TRUE(waitUntil([&] { return view_.count("ended: A001: " + ended) == 1; }));
    drainWorkers();
    EXPECT_FALSE(volume->transferChecks().completeAndVerified);
    const auto card = copiedTree(volume->path());
    for (const QString& destination : volume->destinations()) {
        const auto check = ManifestVerifier::verify(destination, FileLayer::posix());
        EXPECT_TRUE(check.manifestFound);
        EXPECT_FALSE(check.incomplete.isEmpty()) << "the manifest says INCOMPLETE";
        EXPECT_TRUE(
            TestFiles::read(destination + "/Transfer Report.html").contains("NOT complete"));
        expectNoNamedFileDiffers(card, destination, false);
    }
    EXPECT_FALSE(QFileInfo::exists(volume->path() + "/.cardsweep"));
    if (way != "CardPulled")
        return;
    // The row stays, named, until the card comes back.
    EXPECT_EQ(controller_->dataArray(), std::vector<std::shared_ptr<QVVolume>>{volume});
    const QString sheet =
        "sheet: Transfer interrupted | The source drive was unmounted mid-transfer.\n\nA001 (" +
        volume->path() + ") was removed before its transfer ended.";
    EXPECT_TRUE(waitUntil([&] { return view_.events().contains(sheet); }));
    EXPECT_EQ(controller_->threadCount(), 0) << "the slot is given back";
}

INSTANTIATE_TEST_SUITE_P(Ways, EarlyEndTest,
                         ::testing::Values(EarlyEnd{"UserCancel", "Canceled"},
                                           EarlyEnd{"CardPulled", "Card removed during transfer"},
                                           EarlyEnd{"Stopped", "stopped before it was verified"}),
                         [](const auto& info) { return std::string(info.param.way); });

// Every name Linux can hold is copied byte for byte, listed so a check reads it back, and a
// card's own file is never overwritten by what the transfer writes.
TEST_F(OffloadFaultsTest, NamesThatArentTextArriveByteForByte) {
    makeController();
    const QByteArray root = QFile::encodeName(workPath("cards/NAMES"));
    const QList<QByteArray> names = {
        "bad\xff\xfename.MXF",   "new\nline.MXF", "back\\slash.MXF", "tab\there.MXF",
        "\xc3\xa9t\xc3\xa9.MXF", "-dash",         "$(x) 'quote'"};
    QDir().mkpath(QFile::decodeName(root));
    ASSERT_EQ(::mkdir((root + "/DIR\xff").constData(), 0755), 0);
    for (const QByteArray& name : names) {
        for (const QByteArray& folder : {QByteArray("/DIR\xff/"), QByteArray("/")}) {
            QFile file;
            const int fd = ::open((root + folder + name).constData(),
                                  O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
            ASSERT_GE(fd, 0) << name.toStdString();
            ASSERT_TRUE(file.open(fd, QIODevice::WriteOnly, QFileDevice::AutoCloseHandle));
            file.write(folder + name);
        }
    }
    TestFiles::write(QFile::decodeName(root + "/checksums.txt"), "the card's own");
    TestFiles::write(QFile::decodeName(root + "/DIR2/checksums.txt"), "also the card's");
    const auto volume = listCard("NAMES");
    ASSERT_TRUE(offload({volume}));
    EXPECT_EQ(volume->status(), QVVolume::Done) << volume->statusText().toStdString();

    const auto expected = copiedTree(QFile::decodeName(root));
    // Qt can't remove what it can't name: the scratch folder is emptied by bytes.
    const auto cleanUp = qScopeGuard([&] {
        for (const QString& folder :
             {workPath("cards"), workPath("dest one"), workPath("dest two")})
            TestFiles::removeTree(QFile::encodeName(folder));
    });
    for (const QString& destination : volume->destinations()) {
        EXPECT_EQ(copiedTree(destination), expected);
        // Every name is here twice with other bytes, so the name-keyed manifest (its escapes
        // are ChecksumManifestTest's) can't say which file a line means: it reads each name
        // back and says so, passing none and missing none.
        const auto report = ManifestVerifier::verify(destination, FileLayer::posix());
        EXPECT_EQ(report.ambiguous.size(), 2 * names.size() + 2) << "and the two checksums.txt";
        EXPECT_TRUE(report.differing.isEmpty() && report.missing.isEmpty() &&
                    report.extra.isEmpty() && report.unreadable.isEmpty());
        EXPECT_FALSE(QFileInfo::exists(destination + "/ascmhl"))
            << "a history can't hold names that aren't UTF-8";
    }
}

TEST_F(OffloadFaultsTest, LinksAreCopiedAsLinksAndNeverFollowed) {
    FaultyFileLayer& layer = faultyLayer();
    makeController(layer);
    const auto volume = card("LINKS");
    const QByteArray root = QFile::encodeName(volume->path());
    const std::pair<const char*, const char*> links[] = {
        {"CONTENTS/CLIP", "/to-folder"}, {"/etc/passwd", "/outside"},
        {"nowhere", "/dangling"},        {"loop-b", "/loop-a"},
        {"loop-a", "/loop-b"},           {"A001C001.MXF", "/CONTENTS/CLIP/to-file"}};
    for (const auto& [target, link] : links)
        ASSERT_EQ(::symlink(target, (root + link).constData()), 0) << link;
    ASSERT_EQ(::mkfifo((root + "/CONTENTS/pipe").constData(), 0644), 0);
    layer.refuseLinksUnder(work_.filePath("dest two"));
    ASSERT_TRUE(offload({volume}));

    const auto ledger = ledgerOf(volume);
    EXPECT_EQ(ledger->links().size(), std::size(links));
    EXPECT_TRUE(ledger->isComplete(0) == false) << "the pipe can't be copied anywhere";
    const QStringList failures = failuresOf(volume);
    EXPECT_TRUE(failures.contains("/CONTENTS/pipe @-1: not a file, folder or link; not copied"));
    EXPECT_EQ(failures.filter("link refused by the destination: Operation not permitted").size(),
              qsizetype(std::size(links)));
    auto expected = TestFiles::exactTree(root, {".DS_Store", ".Trashes"});
    expected.erase("/CONTENTS/pipe");
    auto copy = copiedTree(volume->destinations()[0]);
    copy.erase("/checksums.txt");
    EXPECT_EQ(copy, expected) << "links as links, pointing where they pointed";
}

// A second transfer reserving a folder that exists lands inside it; verification walking the
// first copy again leaves the second one out.
TEST_F(OffloadFaultsTest, ASecondCopyInsideTheFirstLeavesBothVerifying) {
    const auto clock = std::make_shared<FakeClock>(QDateTime(QDate(2026, 11, 23), QTime(9, 0)));
    services_.clock = clock;
    controller_ = std::make_unique<AppController>(settings_, view_, services_.bundle());
    controller_->setDestinationList({{1, workPath("dest one")}});
    PropertyList::Array stampOnly;
    for (const PropertyList& field : SettingsKey::defaultMetadata()) {
        if (field["title"].toString() == "Timestamp")
            stampOnly.push_back(field);
    }
    settings_.setObject(SettingsKey::metadata, PropertyList(stampOnly));
    const auto first = card("A001");
    ASSERT_TRUE(offload({first}));
    drainWorkers();
    const auto second = card("B001");
    ASSERT_TRUE(offload({second}));
    drainWorkers();
    ASSERT_EQ(second->destinations()[0], first->destinations()[0] + "/0001");
    ASSERT_EQ(first->status(), QVVolume::Done);
    settings_.setObject(SettingsKey::verifyFileSizes, PropertyList(qint64(1)));
    settings_.setObject(SettingsKey::verifyFileChecksums, PropertyList(qint64(1)));
    controller_->verifyVolume(first);
    drainWorkers();
    EXPECT_NE(first->status(), QVVolume::Failed) << first->statusText().toStdString();
}
