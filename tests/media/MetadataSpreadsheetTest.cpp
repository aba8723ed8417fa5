// The project metadata spreadsheet: rows added across runs, headers that grow, sheets
// written by others extended as they are, failures, and cards finishing at once.

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <latch>
#include <thread>

#include "LogPlaces.h"
#include "MetadataSpreadsheet.h"
#include "QVLog.h"
#include "SystemClock.h"
#include "TestFiles.h"

namespace {

MetadataField field(const QString& title, qint64 useInSpreadsheet = 1) {
    MetadataField made;
    made.title = title;
    made.useInSpreadsheet = useInSpreadsheet;
    return made;
}

SpreadsheetVolume volume(const QString& name, const QStringList& destinations,
                         std::map<QString, QString> metadata = {}) {
    return {name, "5A1C-0F3E", destinations, std::move(metadata)};
}

class MetadataSpreadsheetTest : public testing::Test {
  protected:
    QString sheet() const { return dir_.filePath("Project Metadata.csv"); }
    QTemporaryDir dir_;
};

}  // namespace

TEST_F(MetadataSpreadsheetTest, GrowsAcrossRunsKeepingEarlierRows) {
    std::vector<MetadataField> fields = {field("Day"), field("Notes", 0), field("Reel")};
    const QString dest = "/Dest/Project/1/1/2024_03_07_14_05_09";

    ASSERT_TRUE(MetadataSpreadsheet::writeMetadataToFile(
        sheet(), volume("CARD_A", {dest}, {{"QVMetaDay", "1"}, {"QVMetaReel", "1"}}), fields));
    EXPECT_EQ(TestFiles::read(sheet()),
              "Volume,Drive UUID,Destinations,Day,Reel\n"
              "CARD_A,,/Dest/Project/1/1/2024_03_07_14_05_09,1,1\n");

    // Same fields: no header change and no blank line; two destinations share a field.
    ASSERT_TRUE(MetadataSpreadsheet::writeMetadataToFile(
        sheet(), volume("CARD_B", {"/A/Project/1/2/x", "/B/Project/1/2/x"}, {{"QVMetaReel", "2"}}),
        fields));
    const QByteArray afterTwo =
        "Volume,Drive UUID,Destinations,Day,Reel\n"
        "CARD_A,,/Dest/Project/1/1/2024_03_07_14_05_09,1,1\n"
        "CARD_B,,/A/Project/1/2/x; /B/Project/1/2/x,,2\n";
    EXPECT_EQ(TestFiles::read(sheet()), afterTwo);

    // A field added between volumes: the header grows at its end, a blank line follows it,
    // older rows stay as short as they were. The value is found without the title's space.
    fields.push_back(field("Camera Roll"));
    ASSERT_TRUE(MetadataSpreadsheet::writeMetadataToFile(
        sheet(), volume("CARD_C", {"/D"}, {{"QVMetaCameraRoll", "A001"}, {"QVMetaDay", "2"}}),
        fields));
    EXPECT_EQ(TestFiles::read(sheet()),
              "Volume,Drive UUID,Destinations,Day,Reel,Camera Roll\n"
              "\n"
              "CARD_A,,/Dest/Project/1/1/2024_03_07_14_05_09,1,1\n"
              "CARD_B,,/A/Project/1/2/x; /B/Project/1/2/x,,2\n"
              "CARD_C,,/D,2,,A001\n");
}

TEST_F(MetadataSpreadsheetTest, ExistingSheetsAreExtendedNotRewritten) {
    // The identifier goes only under a column a user named "Disk UUID"; the "Drive UUID"
    // column the header gains stays empty.
    TestFiles::write(sheet(), "Disk UUID,Volume,Destinations\n");
    ASSERT_TRUE(MetadataSpreadsheet::writeMetadataToFile(sheet(), volume("CARD_A", {"/D"}), {}));
    EXPECT_EQ(TestFiles::read(sheet()),
              "Drive UUID,Disk UUID,Volume,Destinations\n"
              "\n"
              ",5A1C-0F3E,CARD_A,/D\n");

    // A last row without its line feed gets one before the next row.
    TestFiles::write(sheet(), "Volume,Drive UUID,Destinations\nC,,/D");
    ASSERT_TRUE(MetadataSpreadsheet::writeMetadataToFile(sheet(), volume("\u00c9", {"/D"}), {}));
    EXPECT_EQ(TestFiles::read(sheet()), "Volume,Drive UUID,Destinations\nC,,/D\n\xc3\x89,,/D\n");
}

TEST_F(MetadataSpreadsheetTest, FailureLeavesNothingAndIsLogged) {
    ASSERT_TRUE(QDir().mkpath(QVLog::logFolder()));
    QVLog::createNewLog(LogPlaces::forCurrentUser(), SystemClock::shared());
    const QString missing = dir_.filePath("gone/Project Metadata.csv");
    EXPECT_FALSE(MetadataSpreadsheet::writeMetadataToFile(missing, volume("C", {"/D"}), {}));
    EXPECT_FALSE(QFile::exists(missing));
    ASSERT_TRUE(MetadataSpreadsheet::writeMetadataToFile(sheet(), volume("C", {"/D"}), {}));
    QVLog::finishWriting();

    const QString log =
        QString::fromUtf8(TestFiles::read(QVLog::sharedController().currentLogPath()));
    EXPECT_TRUE(log.contains("Writing metadata to file " + missing));
    EXPECT_TRUE(log.contains("Error: could not write metadata to " + missing));
    EXPECT_TRUE(log.contains("Metadata successfully written to " + sheet()));
    // The atomic write leaves no temporary file beside the sheet.
    EXPECT_EQ(QDir(dir_.path()).entryList(QDir::Files), QStringList{"Project Metadata.csv"});
}

TEST_F(MetadataSpreadsheetTest, VolumesFinishingTogetherAllLand) {
    // Two cards finishing at once write the same sheet, one through another spelling of
    // its path; without a shared lock per file the later write drops the other's rows.
    constexpr int kRowsEach = 50;
    const QString otherSpelling = dir_.path() + "/./Project Metadata.csv";
    std::latch start(2);
    const auto writer = [&](const QString& path, const QString& name) {
        start.arrive_and_wait();
        for (int i = 0; i < kRowsEach; ++i) {
            MetadataSpreadsheet::writeMetadataToFile(path, volume(name, {"/D"}), {field("Reel")});
        }
    };
    std::thread first(writer, sheet(), "CARD_A");
    std::thread second(writer, otherSpelling, "CARD_B");
    first.join();
    second.join();

    const QStringList lines = QString::fromUtf8(TestFiles::read(sheet())).split(u'\n');
    ASSERT_FALSE(lines.isEmpty());
    EXPECT_EQ(lines.first(), "Volume,Drive UUID,Destinations,Reel");
    EXPECT_EQ(lines.count("CARD_A,,/D,"), kRowsEach);
    EXPECT_EQ(lines.count("CARD_B,,/D,"), kRowsEach);
    EXPECT_EQ(lines.size(), 1 + 2 * kRowsEach + 1);  // the last line feed ends an empty piece
}
