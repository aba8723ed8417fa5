// Gathering for support: every log, crash report, settings file and extra file lands in the
// zip on the desktop; a second gathering in the same second gets the date-suffixed name;
// with nothing to gather the user is told so.
#include <gtest/gtest.h>

#include <QDirIterator>
#include <QRegularExpression>
#include <QTemporaryDir>

#include "FakeClock.h"
#include "QVTroubleshootingUtils.h"
#include "TestFiles.h"
#include "ZipArchive.h"

namespace {

QStringList filesUnder(const QString& root) {
    QStringList found;
    QDirIterator it(root, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext())
        found << it.next().mid(root.size() + 1);
    found.sort();
    return found;
}

}  // namespace

TEST(QVTroubleshootingUtilsTest, GatheringTwiceInASecondGivesTwoZipsHoldingEverything) {
    QTemporaryDir work;
    const QVTroubleshootingUtils::Places places{
        work.filePath("Logs/Quorvant"), {work.filePath("Logs/CrashReporter")},
        work.filePath("config"),        work.filePath("Desktop"),
        work.filePath("tmp"),           std::make_shared<FakeClock>()};
    TestFiles::write(places.logFolder + "/cardsweep.1.log", "today");
    TestFiles::write(places.logFolder + "/cardsweep.2.log", "yesterday");
    TestFiles::write(places.logFolder + "/cardsweep-cli.1.log", "the terminal's");
    TestFiles::write(places.logFolder + "/other.1.log", "not ours");
    TestFiles::write(places.crashFolders.front() + "/Cardsweep_2026-11-25-101010.crash", "crash");
    TestFiles::write(places.crashFolders.front() + "/CardsweepHelper_2026-11-25-101010.crash", "h");
    TestFiles::write(places.settingsFolder + "/Quorvant/com.quorvant.Cardsweep.plist", "<plist/>");
    TestFiles::write(work.filePath("global.plist"), "<plist/>");
    QStringList told;
    const auto tell = [&](const QString& title, const QString&) { told << title; };

    const QString first = QVTroubleshootingUtils::gatherLogsForAppsWithNames(
        places, {"Cardsweep", "cardsweep-cli"}, false, {work.filePath("global.plist")}, tell);
    const QString second = QVTroubleshootingUtils::gatherLogsForAppsWithNames(
        places, {"Cardsweep", "cardsweep-cli"}, false, {work.filePath("global.plist")}, tell);
    EXPECT_EQ(first, places.desktop + "/Cardsweep Logs.zip");
    EXPECT_TRUE(
        QFileInfo(second).fileName().contains(QRegularExpression("^Cardsweep Logs_\\d{14}\\.zip$")))
        << second.toStdString();
    EXPECT_EQ(told, QStringList(2, "Logs gathered successfully"));
    for (const QString& zip : {first, second}) {
        QTemporaryDir opened;
        ASSERT_TRUE(ZipArchive::extract(zip, opened.path()));
        EXPECT_EQ(
            filesUnder(opened.path()),
            (QStringList{"Crashes/Cardsweep_2026-11-25-101010.crash", "Logs/cardsweep-cli.1.log",
                         "Logs/cardsweep.1.log", "Logs/cardsweep.2.log", "Other/global.plist",
                         "Settings/com.quorvant.Cardsweep.plist"}));
    }
    EXPECT_FALSE(QFileInfo::exists(places.temporary + "/QV_App_Logs")) << "the work folder goes";

    told.clear();
    EXPECT_TRUE(
        QVTroubleshootingUtils::gatherLogsForAppsWithNames(places, {"Nothing"}, false, {}, tell)
            .isEmpty());
    EXPECT_EQ(told, QStringList{"No logs found"});
    EXPECT_TRUE(QVTroubleshootingUtils::currentLog(places, "Nothing", tell).isEmpty());
    EXPECT_EQ(QVTroubleshootingUtils::currentLog(places, "cardsweep"),
              places.logFolder + "/cardsweep.1.log");
    EXPECT_EQ(told, (QStringList{"No logs found", "No log found"}));
}
