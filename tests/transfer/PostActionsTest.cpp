// The steps after a verified transfer: which run, in what order, and what each leaves behind.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>

#include "EmbedMetadataAction.h"
#include "LogTail.h"
#include "MetadataField.h"
#include "OffloadFixture.h"
#include "Preferences.h"
#include "SpreadsheetAction.h"
#include "TestFiles.h"
#include "ZipArchive.h"

namespace {

// The lines of `text` that are among `wanted`, in the order they were written.
QStringList linesAmong(const QString& text, const QStringList& wanted) {
    QStringList found;
    for (const QString& line : text.split(u'\n')) {
        for (const QString& w : wanted) {
            if (line.endsWith(w))
                found << w;
        }
    }
    return found;
}

}  // namespace

class PostActionsTest : public OffloadFixture {
  protected:
    void setAll(qint64 value) {
        for (const Setting<IntegerSwitch>* key : SettingsKey::postActionSwitches)
            settings_.setObject(*key, PropertyList(value));
    }
    // The destination list the sheets are matched against is the stored one.
    void storeDestinations() {
        Preferences(settings_).setDestinationList(
            {{1, workPath("dest one")}, {0, workPath("dest two")}});
    }
    std::shared_ptr<QVVolume> movieCard(const QString& name) {
        TestFiles::write(workPath("cards/" + name + "/CLIPS/A001.MOV"), "not really a movie");
        return card(name);
    }
    QStringList requests() const { return services_.fakeDesktop.requests(); }
};

TEST_F(PostActionsTest, WithEveryActionOnEachStepRunsOnceInItsOrder) {
    setAll(1);
    storeDestinations();
    settings_.setObject(SettingsKey::actionArchiveType, PropertyList(qint64(1)));
    // An archive folder that can't be made: the zip goes into the first destination.
    TestFiles::write(workPath("blocker"), "a file");
    settings_.setObject(SettingsKey::archiveToCustomDir, PropertyList(qint64(1)));
    settings_.setObject(SettingsKey::archiveDirectory, PropertyList(workPath("blocker/archives")));
    TestFiles::write(workPath("project.fcp"), "project");
    settings_.setObject(SettingsKey::fcpProjectPath, PropertyList(workPath("project.fcp")));
    services_.fakeProcesses.answer("QTMetaTool", FakeProcessRunner::exited(0));
    makeController();
    const auto volume = movieCard("A001");
    const LogTail log;
    ASSERT_TRUE(offload({volume}));

    EXPECT_EQ(volume->status(), QVVolume::Done);
    const QStringList destinations = volume->destinations();
    ASSERT_EQ(destinations.size(), 2);
    const QString first = destinations[0];
    const QString movies = first + "/CLIPS/A001.MOV " + first + "/CONTENTS/PROXY/A001C001.MP4";

    const QStringList steps = {"Performing post actions on volume " + volume->path(),
                               "Writing checksum file...",
                               "Writing metadata spreadsheet...",
                               "Showing folder in Finder...",
                               "Opening files in QuickTime Player...",
                               "Importing into Final Cut Pro...",
                               "Archiving volume...",
                               "Unable to create archive directory at " +
                                   workPath("blocker/archives/Untitled Project") +
                                   " - defaulting to first destination " + first,
                               "Archiving " + first + " to zip file...",
                               "Zip creation output:",
                               "Ejecting volume A001",
                               "Playing sound...",
                               "Showing Growl alert...",
                               "Finishing..."};
    EXPECT_EQ(linesAmong(log.text(), steps), steps);

    // Both movies of both destinations are tagged, one tool run each, with the 10 s limit.
    QStringList tools;
    for (const auto& call : services_.fakeProcesses.calls())
        tools << call.program.section('/', -1) + ' ' + QString::number(call.timeoutSeconds);
    EXPECT_EQ(tools.count("QTMetaTool 10"), 4);
    // The desktop hears of both folders, then the first is revealed and its movie opened; the
    // attention request comes last, after "Done".
    EXPECT_EQ(requests(),
              QStringList({"changed " + destinations[0], "changed " + destinations[1],
                           "reveal " + first, "open " + movies, "sound complete", "attention"}));
    EXPECT_EQ(notifier_.posted().count("Transfer Complete | A001 | Transfer Complete"), 1);
    const auto ejects = services_.fakeVolumes.calls();
    ASSERT_EQ(ejects.size(), 1u);
    EXPECT_EQ(ejects[0].mountPoint, volume->path());

    // Each stored entry, ticked or not, gives the project folder one level below it its sheet.
    for (const char* entry : {"dest one", "dest two"}) {
        const QString sheet = workPath(entry) + "/Untitled Project/Untitled Project Metadata.csv";
        EXPECT_TRUE(QString::fromUtf8(TestFiles::read(sheet)).contains("A001"))
            << sheet.toStdString();
    }
    EXPECT_TRUE(QFile::exists(workPath("A001 Clips.xml")));

    const QString zipName = "A001 " + QFileInfo(first).fileName() + " Archive.zip";
    const QString zip = first + "/" + zipName;
    ASSERT_TRUE(ZipArchive::extract(zip, workPath("unzipped")));
    EXPECT_EQ(TestFiles::tree(workPath("unzipped")), TestFiles::tree(first, {zipName}));

    const QStringList did = view_.events().filter("did: ");
    EXPECT_EQ(did.first(), "did: Done marker: " + volume->path() + "/.cardsweep");
    EXPECT_TRUE(did.contains("did: Metadata written into 4 movies"));
    EXPECT_TRUE(did.contains("did: Archive: " + zip));
    EXPECT_EQ(did.last(), "did: Played the completion sound");
    EXPECT_EQ(view_.count("ended: A001: Done"), 1);
}

TEST_F(PostActionsTest, WithEveryActionOffOnlyTheManifestIsWrittenAndAFolderIsNeverMarked) {
    setAll(0);
    makeController();
    const auto volume = movieCard("A001");
    volume->setIsFolder(true);
    settings_.setObject(SettingsKey::writeDoneFlag, PropertyList(qint64(1)));
    const LogTail log;
    ASSERT_TRUE(offload({volume}));

    EXPECT_EQ(volume->status(), QVVolume::Done);
    EXPECT_FALSE(QFile::exists(volume->path() + "/.cardsweep"));
    EXPECT_EQ(view_.events().filter("did: "),
              QStringList{"did: Checksum manifest written to 2 destinations"});
    // Only the folder-changed notes reach the desktop; no tool, no eject, no notification.
    EXPECT_EQ(requests().filter("changed ").size(), 2);
    EXPECT_EQ(requests().size(), 2);
    EXPECT_TRUE(services_.fakeProcesses.calls().empty() && services_.fakeVolumes.calls().empty() &&
                notifier_.posted().isEmpty());
    EXPECT_EQ(
        linesAmong(log.text(), {"Writing checksum file...", "Archiving volume...", "Finishing..."}),
        QStringList({"Writing checksum file...", "Finishing..."}));
}

TEST_F(PostActionsTest, ADiskImageArchiveIgnoresItsFolderNameAndNoMoviesMeansNoHandOff) {
    setAll(0);
    for (const Setting<IntegerSwitch>& key :
         {SettingsKey::actionArchive, SettingsKey::actionOpenQTPlayer, SettingsKey::actionSendFCP})
        settings_.set(key, true);
    services_.fakeProcesses.answer("mksquashfs",
                                   FakeProcessRunner::exited(0, "Parallel mksquashfs"));
    makeController();
    TestFiles::write(workPath("cards/B002/CONTENTS/CLIP/B002C001.MXF"), "no movies on it");
    const auto volume = listCard("B002");
    const LogTail log;
    ASSERT_TRUE(offload({volume}));

    const QString first = volume->destinations().value(0);
    const QString folder = QFileInfo(first).fileName();
    const QString image = first + "/B002 " + folder + " Archive.dmg";
    EXPECT_EQ(services_.fakeProcesses.commandLines().size(), 1) << "the image tool alone";
    EXPECT_EQ(settings_.object(SettingsKey::ignoredVolumes).toStringList(), QStringList{folder});
    EXPECT_TRUE(log.text().contains("Disk image creation output: Parallel mksquashfs"));
    EXPECT_TRUE(requests().filter("open ").isEmpty());
    EXPECT_FALSE(log.text().contains("XML for clips"));
    EXPECT_TRUE(view_.events().contains("did: Archive: " + image));
}

TEST(PostActionSteps, SpreadsheetPathsFollowTheTextualPrefixRule) {
    EXPECT_EQ(SpreadsheetAction::spreadsheetPath("/m/a/Proj/CARD", "/m/a"),
              "/m/a/Proj/Proj Metadata.csv");
    // A plain text prefix: "/m/a" also stands for "/m/ab".
    EXPECT_EQ(SpreadsheetAction::spreadsheetPath("/m/ab/Proj/CARD", "/m/a"),
              "/m/ab/Proj/Proj Metadata.csv");
    EXPECT_EQ(SpreadsheetAction::spreadsheetPath("/m/a", "/m/a"), "/m/a/a Metadata.csv");
    EXPECT_EQ(SpreadsheetAction::spreadsheetPath("/m/a/Proj/CARD", "/m/a/"),
              "/m/a/Proj/Proj Metadata.csv");
}

TEST(PostActionSteps, MetadataPairsKeepFieldOrderAndMarkMissingValues) {
    const auto field = [](const QString& title, std::optional<QString> key) {
        MetadataField f;
        f.title = title;
        f.qtMetadataKey = std::move(key);
        return f;
    };
    const MetadataField day = field("Day", "com.cardsweep.day");
    const MetadataField note = field("Note", std::nullopt);  // no movie key: left out
    const MetadataField reel = field("Camera Reel", "com.cardsweep.reel");
    const MetadataValues values = {{day.identifier(), "3"}, {note.identifier(), "x"}};
    EXPECT_EQ(EmbedMetadataAction::metadataPairs({day, note, reel}, values),
              R"x("com.cardsweep.day"="3";"com.cardsweep.reel"="(null)";)x");
    EXPECT_EQ(EmbedMetadataAction::metadataPairs({note}, values), "");
}
