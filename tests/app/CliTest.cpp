// cardsweep-cli as a user runs it: a sample card offloaded to two folders, the verdict, the
// manifests, re-verification, the exit statuses of bad requests, and offloads running together.
#include <gtest/gtest.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <memory>
#include <vector>

#include "CardFormat.h"
#include "CliRunner.h"
#include "FileLayer.h"
#include "ManifestVerifier.h"
#include "Preferences.h"
#include "QVFileManager.h"
#include "QVTask.h"
#include "SampleCard.h"
#include "SettingsStore.h"
#include "TempHome.h"
#include "TestFiles.h"

namespace {

using CliRun = CliRunner::Run;

CliRun cli(const QStringList& arguments) {
    return CliRunner::run(arguments);
}

}  // namespace

TEST(Cli, OffloadsASampleCardToTwoFoldersAndReverifiesThem) {
    QTemporaryDir dir;
    const QString card = dir.filePath("P2 'CARD' $(x)");
    SampleCard::Options options;
    options.clipBytes = 3 * 1024 * 1024 + 5;
    ASSERT_TRUE(SampleCard::make(CardFormat::P2, card, options));
    const auto before = TestFiles::tree(card);

    const CliRun run = cli({"offload", card, "--dest", dir.filePath("A"), "--dest",
                            dir.filePath("B"), "--checksum", "sha1", "--project", "Feature"});
    ASSERT_EQ(run.status, 0) << run.output.toStdString();
    EXPECT_TRUE(run.output.contains("Card: P2 'CARD' $(x) (P2)"));
    EXPECT_EQ(TestFiles::tree(card), before) << "nothing on the source is written";

    const auto copied = TestFiles::tree(card, {".Trashes", ".DS_Store"});
    // The bar counts the card's bytes once and ends full; the verdict gives what each copy got.
    qint64 bytes = 0;
    for (const auto& [path, content] : copied)
        bytes += content.size();
    const QString size = QVFileManager::formatFileSize(double(bytes));
    EXPECT_TRUE(run.output.contains("100% " + size + " / " + size)) << run.output.toStdString();
    EXPECT_TRUE(run.output.contains("Verdict: verified, read back from the media (" + size + ")"))
        << run.output.toStdString();
    for (int index = 0; index < 2; ++index) {
        const QString folder = run.destinations().value(index);
        ASSERT_TRUE(folder.contains("/Feature/")) << run.output.toStdString();
        EXPECT_EQ(TestFiles::tree(folder, {"checksums.txt", "checksums.md5", "checksums.sha1",
                                           "ascmhl", "Transfer Report.html"}),
                  copied);
        EXPECT_EQ(TestFiles::read(folder + "/checksums.txt").indexOf('\t'), 40) << "SHA-1";
        EXPECT_EQ(cli({"verify", folder}).status, 0);
    }

    // Both copies' manifests agree; once one is changed, compare names what differs.
    const QString a = run.destinations().value(0);
    const QString b = run.destinations().value(1);
    const CliRun same = cli({"compare", a, b});
    EXPECT_EQ(same.status, 0) << same.output.toStdString();
    const QByteArray manifest = TestFiles::read(b + "/checksums.txt");
    QList<QByteArray> lines = manifest.split('\n');
    ASSERT_GE(lines.size(), 3);
    const QByteArray changed = lines[0].split('\t').value(1);
    const QByteArray dropped = lines[1].split('\t').value(1);
    lines[0][0] = lines[0][0] == '0' ? '1' : '0';
    lines.removeAt(1);
    TestFiles::write(b + "/checksums.txt", lines.join('\n'));
    const CliRun differ = cli({"compare", a, b});
    EXPECT_EQ(differ.status, 1);
    for (const QString& line :
         {"differs: " + QString(changed) + ": ", "missing from " + b + ": " + QString(dropped)})
        EXPECT_TRUE(differ.output.contains(line))
            << line.toStdString() << differ.output.toStdString();
    TestFiles::write(b + "/checksums.txt", manifest);
    EXPECT_EQ(cli({"compare", a, dir.filePath("no copy here")}).status, 2);
    // MD5 unless told otherwise. Each step after the transfer that did something says so.
    const CliRun md5 = cli({"offload", card, "--dest", dir.filePath("C"), "--archive", "zip"});
    ASSERT_EQ(md5.status, 0) << md5.output.toStdString();
    EXPECT_EQ(TestFiles::read(md5.destinations().value(0) + "/checksums.txt").indexOf('\t'), 32)
        << "MD5";
    for (const char* line : {"P2 'CARD' $(x): Checksum manifest written to 1 destination",
                             " Archive.zip", "Transfer Complete: P2 'CARD' $(x)"})
        EXPECT_TRUE(md5.output.contains(line)) << line << md5.output.toStdString();
    EXPECT_FALSE(md5.output.contains("Done marker")) << "a folder is never marked";
    const CliRun bare =
        cli({"offload", card, "--dest", dir.filePath("D"), "--no-post-actions", "--inline"});
    ASSERT_EQ(bare.status, 0) << bare.output.toStdString();
    EXPECT_FALSE(bare.output.contains("Transfer Complete")) << bare.output.toStdString();
    EXPECT_TRUE(bare.output.contains("Verdict: verified, inline, not read back from the media"));

    // Later damage: a changed clip, a lost sidecar, a stray file.
    const QString folder = run.destinations().value(1);
    QFile clip(folder + "/CONTENTS/VIDEO/0001AB.MXF");
    ASSERT_TRUE(clip.open(QIODevice::ReadWrite) && clip.seek(100) && clip.write("!") == 1);
    clip.close();
    ASSERT_TRUE(QFile::remove(folder + "/CONTENTS/LASTCLIP.TXT")) << "sample layout changed?";
    QFile(folder + "/CONTENTS/stray.bin").open(QIODevice::WriteOnly);
    const CliRun recheck = cli({"verify", folder});
    EXPECT_EQ(recheck.status, 1);
    for (const char* line :
         {"checked against its ASC MHL history", "differs: CONTENTS/VIDEO/0001AB.MXF",
          "missing: CONTENTS/LASTCLIP.TXT", "extra: CONTENTS/stray.bin"})
        EXPECT_TRUE(recheck.output.contains(line)) << line << "\n" << recheck.output.toStdString();
}

// A damaged settings file is said once, and the defaults carry on.
TEST(Cli, DemoOffloadsASampleCardOverDamagedSettingsSayingSoOnceAndItsLogIsGathered) {
    TempHome home;
    home.setEnv("TMPDIR", QFile::encodeName(home.path()));
    const QString settings = home.file(".config/Quorvant/com.quorvant.Cardsweep.plist");
    TestFiles::write(settings, "<plist><dict><key>broken");
    const CliRun run = cli({"demo"});
    ASSERT_EQ(run.status, 0) << run.output.toStdString();
    EXPECT_EQ(run.output.count("could not be read"), 1) << run.output.toStdString();
    EXPECT_TRUE(run.output.contains("Verdict: verified")) << run.output.toStdString();
    const QStringList manifests = run.output.split(u'\n').filter(QRegularExpression("^Manifest: "));
    EXPECT_EQ(manifests.size(), 2);
    for (const QString& line : manifests) {
        EXPECT_TRUE(line.mid(10).startsWith(home.path()));
        EXPECT_TRUE(QFileInfo(line.mid(10)).size() > 0) << line.toStdString();
    }

    QFile::remove(settings);
    const CliRun gathered = cli({"gather-logs"});
    ASSERT_EQ(gathered.status, 0) << gathered.output.toStdString();
    const QString zip = gathered.output.trimmed();
    EXPECT_TRUE(zip.endsWith("/Cardsweep Logs.zip")) << zip.toStdString();
    EXPECT_TRUE(zip.startsWith(home.path())) << "on this user's desktop";
    EXPECT_GT(QFileInfo(zip).size(), 0);
}

TEST(Cli, BadRequestsEndWithOneClearLineAndAStatus) {
    QTemporaryDir dir;
    QFile(dir.filePath("plain")).open(QIODevice::WriteOnly);
    QDir().mkpath(dir.filePath("card/DCIM"));
    EXPECT_EQ(cli({"offload", dir.filePath("missing"), "--dest", dir.filePath("A")}).status, 2);
    EXPECT_EQ(cli({"offload", dir.filePath("card")}).status, 2);
    EXPECT_EQ(cli({"offload", dir.filePath("card"), "--dest", dir.filePath("A"), "--bogus"}).status,
              2);
    EXPECT_EQ(cli({"verify", dir.filePath("card")}).status, 2);
    EXPECT_EQ(
        cli({"offload", dir.filePath("card"), "--dest", dir.filePath("E"), "--archive", "tar"})
            .status,
        2);

    // Refused before anything is written anywhere: the other destination isn't made either.
    ASSERT_EQ(::symlink(QFile::encodeName(dir.filePath("A")).constData(),
                        QFile::encodeName(dir.filePath("alias")).constData()),
              0);
    struct Refused {
        QStringList destinations;
        QString says;
    };
    for (const Refused& bad : {
             Refused{{dir.filePath("new1"), ""}, "an empty destination was given"},
             Refused{{dir.filePath("new1"), dir.filePath("plain")}, "destination is not a folder"},
             Refused{{dir.filePath("new1"), dir.filePath("plain/sub")},
                     "destination can't be written"},
             Refused{{dir.filePath("A"), dir.filePath("new1/../A/")}, "given twice"},
             Refused{{dir.filePath("A/x"), dir.filePath("alias/x")}, "given twice"},
             // On the card itself it would copy the card into itself.
             Refused{{dir.filePath("card/../card/DCIM/new")}, "destination is inside the source"},
         }) {
        QStringList arguments = {"offload", dir.filePath("card")};
        for (const QString& destination : bad.destinations)
            arguments << "--dest" << destination;
        const CliRun run = cli(arguments);
        EXPECT_EQ(run.status, 2) << run.output.toStdString();
        EXPECT_TRUE(run.output.contains(bad.says)) << run.output.toStdString();
        EXPECT_EQ(run.output.trimmed().count(u'\n'), 0) << "one line: " << run.output.toStdString();
        for (const char* unmade : {"new1", "A", "card/DCIM/new"})
            EXPECT_FALSE(QFileInfo::exists(dir.filePath(unmade))) << unmade;
    }
}

// Four offloads started together to the same destinations, again and again: every card in a
// folder of its own, every Reel number handed out once, every folder verifying. Half the rounds
// name folders by the second alone, so all four want the same one.
TEST(Cli, ConcurrentOffloadsNeverShareAFolderOrANumber) {
    TempHome home;
    QTemporaryDir dir;
    constexpr int kCards = 4;
    for (int c = 0; c < kCards; ++c)
        TestFiles::write(dir.filePath(QStringLiteral("card%1/CLIP/clip.MXF").arg(c)),
                         TestFiles::randomBytes(200 * 1024 + c, quint32(c)));
    QSet<QString> folders;
    for (int round = 0; round < 6; ++round) {
        if (round == 3) {
            PropertyList::Array stampOnly;
            for (const PropertyList& field : SettingsKey::defaultMetadata()) {
                if (field["title"].toString() == "Timestamp")
                    stampOnly.push_back(field);
            }
            SettingsStore(SettingsStore::defaultPath())
                .setObject(SettingsKey::metadata, PropertyList(stampOnly));
        }
        std::vector<std::unique_ptr<QVTask>> runs;
        for (int c = 0; c < kCards; ++c) {
            auto task = std::make_unique<QVTask>(
                QVTask::Setup{QStringLiteral(CARDSWEEP_CLI_PATH),
                              {"offload", dir.filePath(QStringLiteral("card%1").arg(c)), "--dest",
                               dir.filePath("A"), "--dest", dir.filePath("B/")},
                              std::nullopt,
                              QVTask::Channel::Inherit,
                              QVTask::Channel::Pipe,
                              QVTask::Channel::NullDevice});
            task->launch();
            runs.push_back(std::move(task));
        }
        for (auto& task : runs) {
            QByteArray output;
            for (QByteArray piece = task->readOutput(); !piece.isEmpty();
                 piece = task->readOutput())
                output += piece;
            task->waitUntilExit();
            EXPECT_EQ(task->terminationStatus(), 0) << output.toStdString();
            for (const QString& folder :
                 CliRunner::Run{0, QString::fromUtf8(output)}.destinations())
                folders << folder;
        }
    }
    EXPECT_EQ(folders.size(), 6 * kCards * 2) << "each card, each time, a folder of its own";
    EXPECT_FALSE(QStringList(folders.begin(), folders.end())
                     .filter(QRegularExpression("/000[1-3]$"))
                     .isEmpty())
        << "cards that wanted one folder were given the next numbers";
    for (const QString& folder : folders) {
        EXPECT_EQ(QDir(folder + "/CLIP").entryList(QDir::Files).size(), 1) << folder.toStdString();
        EXPECT_TRUE(ManifestVerifier::verify(folder, FileLayer::posix()).ok())
            << folder.toStdString();
    }
}
