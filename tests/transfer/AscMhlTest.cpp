// ASC MHL histories: what a transfer writes (valid against the schema, read back by verify),
// same-named files told apart, a card's own history continued, and a card that contradicts
// its history failing with the file named.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QProcess>

#include "AscMhlHistory.h"
#include "C4Id.h"
#include "Clock.h"
#include "FileHash.h"
#include "FileLayer.h"
#include "HistoryVerifier.h"
#include "ManifestVerifier.h"
#include "OffloadFixture.h"
#include "Preferences.h"
#include "SystemClock.h"
#include "TestFiles.h"
#include "TransferReport.h"

namespace {

const QString kSchemas = QStringLiteral(CARDSWEEP_ASCMHL_SCHEMAS);

class AscMhlTest : public OffloadFixture {
  protected:
    void SetUp() override {
        makeController();
        settings_.setObject(SettingsKey::checksumFormat,
                            PropertyList(qint64(DigestContext::Kind::XXH128)));
    }
    // Two clips of one name in two folders, as stills cameras number them.
    std::shared_ptr<QVVolume> stillsCard(const QString& name) {
        const QString root = workPath("cards/" + name);
        TestFiles::write(root + "/DCIM/100EOS5D/MVI_0001.MOV", TestFiles::randomBytes(70000, 1));
        TestFiles::write(root + "/DCIM/101EOS5D/MVI_0001.MOV", TestFiles::randomBytes(90000, 2));
        return listCard(name);
    }
    static AscMhlHistory load(const QString& folder) {
        return AscMhlHistory::load(FileLayer::posix(), QFile::encodeName(folder));
    }
    static HistoryVerifier::Report check(const QString& folder, bool seal = false) {
        return HistoryVerifier::verify(folder, seal, FileLayer::posix(), *SystemClock::shared());
    }
    static QStringList historyFiles(const QString& folder) {
        return QDir(folder + "/ascmhl").entryList(QDir::Files, QDir::Name);
    }
    // xmllint's verdict on a file against one of the schemas kept with the tests.
    static QString schemaProblems(const QString& file, const QString& schema) {
        if (!QFile::exists("/usr/bin/xmllint") || !QFile::exists(kSchemas + '/' + schema))
            return "xmllint or the schema is missing: the history is not validated";
        QProcess lint;
        lint.start("xmllint", {"--nonet", "--noout", "--schema", kSchemas + '/' + schema, file});
        if (!lint.waitForFinished(30000))
            return "xmllint didn't run";
        return lint.exitCode() == 0 ? QString()
                                    : QString::fromLocal8Bit(lint.readAllStandardError());
    }
    static void flipByte(const QString& path, qint64 at) {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::ReadWrite));
        file.seek(at);
        char byte = 0;
        file.getChar(&byte);
        file.seek(at);
        file.putChar(char(byte ^ 0x20));
    }
};

}  // namespace

TEST(C4Id, KnownIdentifiers) {
    // The SMPTE ST 2114 identifier of no bytes, and the shape of every one.
    EXPECT_EQ(C4Id::of({}),
              "c459dsjfscH38cYeXXYogktxf4Cd9ibshE3BHUo6a58hBXmRQdZrAkZzsWcbWtDg5oQs"
              "tpDuni4Hirj75GEmTc1sFT");
    const QString abc = C4Id::of("abc");
    EXPECT_EQ(abc.size(), C4Id::kLength);
    EXPECT_TRUE(abc.startsWith("c4"));
    EXPECT_NE(abc, C4Id::of("abd"));
}

// XXH128 for the manifest and, from the same read, MD5 for a post house (asked twice: once).
TEST_F(AscMhlTest, EveryCopyCarriesAValidHistoryThatTellsSameNamedFilesApart) {
    settings_.setObject(
        SettingsKey::alsoChecksumFormats,
        PropertyList(PropertyList::Array{PropertyList(qint64(0)), PropertyList(qint64(4)),
                                         PropertyList(qint64(0))}));
    // A name XML must escape, carriage return included, comes back byte for byte.
    TestFiles::write(workPath("cards/EOS_DIGITAL/DCIM/R&D <\"take\" 2>\r.MOV"), "odd");
    const auto volume = stillsCard("EOS_DIGITAL");
    ASSERT_TRUE(offload({volume}));
    ASSERT_EQ(volume->status(), QVVolume::Done) << volume->statusText().toStdString();

    for (const QString& destination : volume->destinations()) {
        const QStringList files = historyFiles(destination);
        ASSERT_EQ(files.size(), 2) << files.join(", ").toStdString();
        EXPECT_TRUE(files[0].startsWith("0001_" + QFileInfo(destination).fileName() + "_"));
        EXPECT_TRUE(files[0].endsWith("Z.mhl"));
        EXPECT_EQ(files[1], "ascmhl_chain.xml");
        EXPECT_EQ(schemaProblems(destination + "/ascmhl/" + files[0], "ASCMHL.xsd"), "");
        EXPECT_EQ(schemaProblems(destination + "/ascmhl/ascmhl_chain.xml",
                                 "ASCMHLDirectory__combined.xsd"),
                  "");
        const AscMhlHistory written = load(destination);
        EXPECT_EQ(written.problem().message(), "");
        const auto latest = written.latest();
        ASSERT_EQ(latest.size(), 6u) << "three clips, the manifest, its list and the report";
        EXPECT_TRUE(latest.count("DCIM/R&D <\"take\" 2>\r.MOV"));
        const auto& clip = latest.at("DCIM/101EOS5D/MVI_0001.MOV");
        EXPECT_EQ(clip.size, 90000u);
        ASSERT_EQ(clip.hashes.size(), 2u);
        const QString card = volume->path() + "/DCIM/101EOS5D/MVI_0001.MOV";
        for (const auto& hash : clip.hashes) {
            EXPECT_EQ(hash.action, "original");
            EXPECT_EQ(hash.hex,
                      FileHashCreateWithPath(hash.kind, card, 4096, {}, FileLayer::posix()));
        }
        EXPECT_EQ(clip.hashes[0].kind, DigestContext::Kind::MD5) << "in the schema's order";
        EXPECT_EQ(clip.hashes[1].kind, DigestContext::Kind::XXH128);
        EXPECT_TRUE(latest.count("checksums.txt") && latest.count("Transfer Report.html"))
            << "the sidecars are sealed too";
        EXPECT_TRUE(check(destination).ok());
    }

    // One byte flipped in one of the two same-named clips: the history names it; the manifest,
    // keyed by name, can't tell which file its line means and says so instead of passing.
    const QString destination = volume->destinations()[0];
    flipByte(destination + "/DCIM/101EOS5D/MVI_0001.MOV", 500);
    const auto byHistory = check(destination);
    EXPECT_EQ(byHistory.differing, QStringList{"DCIM/101EOS5D/MVI_0001.MOV"});
    EXPECT_EQ(byHistory.checked, 6);
    const auto byManifest = ManifestVerifier::verify(destination, FileLayer::posix());
    EXPECT_FALSE(byManifest.ok());
    EXPECT_EQ(byManifest.ambiguous.size(), 2);

    // Sealing records the check as the next generation; a generation changed afterwards no
    // longer matches its chain.
    const auto sealing = check(destination, true);
    EXPECT_FALSE(sealing.ok());
    EXPECT_EQ(sealing.sealed.message(), "");
    const QStringList sealed = historyFiles(destination);
    ASSERT_EQ(sealed.size(), 3);
    EXPECT_TRUE(sealed[1].startsWith("0002_"));
    const AscMhlHistory history = load(destination);
    ASSERT_EQ(history.generations().size(), 2u);
    EXPECT_EQ(history.generations()[1].process, "in-place");
    EXPECT_EQ(history.latest().at("DCIM/101EOS5D/MVI_0001.MOV").hashes[0].action, "failed");
    EXPECT_EQ(history.latest().at("DCIM/100EOS5D/MVI_0001.MOV").hashes[0].action, "verified");
    TestFiles::write(destination + "/ascmhl/" + sealed[0], "<hashlist/>");
    const QString error = load(destination).problem().message();
    EXPECT_TRUE(error.contains("was changed")) << error.toStdString();
}

// The report a producer gets: every file with its digest, every destination's verdict, nothing
// that runs or loads; rebuilt from the copy's history alone, it lists the same files.
TEST_F(AscMhlTest, TheReportListsEveryFileAndEveryVerdictAndCanBeRebuilt) {
    const auto volume = stillsCard("EOS_DIGITAL");
    settings_.setObject(SettingsKey::checksumFormat,
                        PropertyList(qint64(DigestContext::Kind::MD5)));
    ASSERT_TRUE(offload({volume}));
    ASSERT_EQ(volume->status(), QVVolume::Done);
    const QStringList destinations = volume->destinations();
    const QString page =
        QString::fromUtf8(TestFiles::read(destinations[0] + "/Transfer Report.html"));
    EXPECT_EQ(page, QString::fromUtf8(TestFiles::read(destinations[1] + "/Transfer Report.html")));
    for (const QString path : {"DCIM/100EOS5D/MVI_0001.MOV", "DCIM/101EOS5D/MVI_0001.MOV"}) {
        EXPECT_TRUE(page.contains(path));
        EXPECT_TRUE(page.contains(
            *FileMD5HashCreateWithPath(volume->path() + '/' + path, 4096, {}, FileLayer::posix())));
    }
    for (const QString& destination : destinations)
        EXPECT_TRUE(page.contains("<td>" + destination.toHtmlEscaped() +
                                  "</td><td class=\"ok\">complete and verified</td>"));
    EXPECT_FALSE(page.contains("<script") || page.contains("http:") || page.contains("https:"));

    const auto rebuilt =
        TransferReport::fromFolder(FileLayer::posix(), QFile::encodeName(destinations[1]));
    ASSERT_TRUE(rebuilt) << rebuilt.status().message().toStdString();
    EXPECT_EQ(rebuilt->card.name, "EOS_DIGITAL");
    EXPECT_EQ(rebuilt->digest, "md5");
    QStringList files;
    rebuilt->files([&](const TransferReport::File& file) { files << file.path; });
    files.sort();
    EXPECT_EQ(files, QStringList({"DCIM/100EOS5D/MVI_0001.MOV", "DCIM/101EOS5D/MVI_0001.MOV",
                                  "checksums.md5", "checksums.txt"}));
}

TEST(AscMhlPatterns, LeaveOutWhatTheyName) {
    struct Case {
        const char* pattern;
        const char* path;
        bool ignored;
    } cases[] = {{".Trashes", ".Trashes/501/A.MOV", true},
                 {".Trashes", "DCIM/.Trashes/x", true},
                 {".Trashes", "DCIM/x.Trashes", false},
                 {"*.tmp", "DCIM/a.tmp", true},
                 {"ascmhl/", "ascmhl", false},
                 {"ascmhl/", "ascmhl/0001.mhl", true},
                 {"/DCIM/*.THM", "DCIM/A.THM", true},
                 {"/DCIM/*.THM", "X/DCIM/A.THM", false},
                 {"**/proxy/*.mp4", "A/B/proxy/c.mp4", true},
                 {"!keep", "keep", false}};
    for (const Case& c : cases)
        EXPECT_EQ(AscMhlHistory::isIgnored({c.pattern}, c.path), c.ignored)
            << c.pattern << " " << c.path;
}

TEST_F(AscMhlTest, ACardsOwnHistoryIsContinuedAndACardThatContradictsItFails) {
    // A camera's history in MD5 while this transfer uses XXH128: both kinds are checked. It
    // records a desktop's litter, which no copy brings, and a pattern of its own.
    const auto makeHistory = [&](const QString& root) {
        TestFiles::write(root + "/.Trashes/501/deleted.MOV", "gone");
        TestFiles::write(root + "/.fseventsd/0000000000a1b2c3", "log");
        AscMhlHistory history;
        AscMhlHistory::Generation generation;
        generation.created = QDateTime::currentDateTimeUtc();
        generation.ignore = AscMhlHistory::defaultIgnorePatterns() << "*.tmp";
        for (const QString path : {"DCIM/100EOS5D/MVI_0001.MOV", "DCIM/101EOS5D/MVI_0001.MOV",
                                   ".Trashes/501/deleted.MOV", ".fseventsd/0000000000a1b2c3"}) {
            const auto md5 = FileHashCreateWithPath(DigestContext::Kind::MD5, root + '/' + path,
                                                    4096, {}, FileLayer::posix());
            generation.entries.push_back({path.toUtf8(),
                                          std::uint64_t(QFileInfo(root + '/' + path).size()),
                                          generation.created,
                                          {{DigestContext::Kind::MD5, *md5,
                                            QStringLiteral("original"), generation.created}}});
        }
        const Status written =
            history.append(FileLayer::posix(), QFile::encodeName(root), std::move(generation));
        ASSERT_TRUE(written.ok()) << written.message().toStdString();
    };
    const auto good = stillsCard("GOOD");
    makeHistory(good->path());
    const auto damaged = stillsCard("DAMAGED");
    makeHistory(damaged->path());
    flipByte(damaged->path() + "/DCIM/100EOS5D/MVI_0001.MOV", 10);
    ASSERT_TRUE(offload({good, damaged}));

    EXPECT_EQ(good->status(), QVVolume::Done) << good->statusText().toStdString();
    for (const QString& destination : good->destinations()) {
        const AscMhlHistory history = load(destination);
        EXPECT_EQ(history.problem().message(), "");
        ASSERT_EQ(history.generations().size(), 2u) << "the card's, then this transfer's";
        const QStringList ignore = history.generations()[1].ignore;
        for (const QString pattern : {"*.tmp", ".Trashes", ".fseventsd", "ascmhl"})
            EXPECT_TRUE(ignore.contains(pattern)) << pattern.toStdString();
        const QString generation =
            destination + "/ascmhl/" + QString::fromUtf8(history.generations()[1].fileName);
        EXPECT_EQ(schemaProblems(generation, "ASCMHL.xsd"), "");
        const auto latest = history.latest();
        const auto& clip = latest.at("DCIM/100EOS5D/MVI_0001.MOV");
        EXPECT_EQ(clip.hashes[0].kind, DigestContext::Kind::XXH128);
        EXPECT_EQ(clip.hashes[0].action, "original");
        EXPECT_TRUE(check(destination).ok());
    }
    EXPECT_EQ(historyFiles(good->path()).size(), 2) << "the card itself is left as it was";

    EXPECT_EQ(damaged->status(), QVVolume::Failed);
    bool named = false;
    for (const auto& failure : damaged->ledger()->failures())
        named = named || (failure.path == "/DCIM/100EOS5D/MVI_0001.MOV" &&
                          failure.reason.contains("card's own ASC MHL history"));
    EXPECT_TRUE(named);
}
