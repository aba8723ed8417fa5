// The last run's crash: a child that aborts or takes SIGSEGV leaves a report our handler wrote
// and is found at the next start; a clean exit is not; an older report, another program's
// report, and the global switch are honoured.
#include <gtest/gtest.h>

#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include "LogTail.h"
#include "PropertyList.h"
#include "QVBugReporter.h"
#include "TestFiles.h"

namespace {

// Runs the crash child with these places, ending as mode says: its exit code, -1 on a signal.
int runChild(const QVBugReporter::Places& places, const QString& mode) {
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("ASAN_OPTIONS", "detect_leaks=0");
    child.setProcessEnvironment(environment);
    child.start(CARDSWEEP_CRASH_CHILD, {places.recordFile, places.crashFolders.front(), mode});
    child.waitForFinished(30000);
    return child.exitStatus() == QProcess::NormalExit ? child.exitCode() : -1;
}

QVBugReporter::Places places(const QTemporaryDir& work, const QString& globalFile = {}) {
    return {work.filePath("launches.plist"),
            {work.filePath("Logs/CrashReporter")},
            globalFile,
            "Cardsweep"};
}

}  // namespace

TEST(QVBugReporterTest, AnAbortAndASegmentationFaultAreFoundAtTheNextStartACleanExitIsNot) {
    for (const QString mode : {"abort", "segv"}) {
        SCOPED_TRACE(mode.toStdString());
        QTemporaryDir work;
        EXPECT_EQ(runChild(places(work), mode), -1);
        const auto report = QVBugReporter::checkForCrashes(places(work));
        ASSERT_TRUE(report);
        EXPECT_TRUE(QFileInfo(*report).fileName().contains(
            QRegularExpression("^Cardsweep_\\d{4}-\\d{2}-\\d{2}-\\d{6}\\.crash$")))
            << report->toStdString();
        const QByteArray text = TestFiles::read(*report);
        EXPECT_TRUE(text.contains(mode == "abort" ? "Signal: SIGABRT" : "Signal: SIGSEGV"));
        EXPECT_TRUE(text.contains("Backtrace:\n") && text.count('\n') > 6) << text.toStdString();
        // The next run starts: told once, then its own launch is recorded.
        QStringList told;
        QVBugReporter::startBugReporter(places(work), QDateTime::currentDateTime().addSecs(1),
                                        [&](const QString& path) { told << path; });
        EXPECT_EQ(told, QStringList{*report});
        EXPECT_FALSE(QVBugReporter::checkForCrashes(places(work))) << "an older report is ignored";
    }
    QTemporaryDir work;
    TestFiles::write(work.filePath("Logs/CrashReporter/Cardsweep_2020-01-01-000000.crash"), "old");
    EXPECT_EQ(runChild(places(work), "clean"), 0);
    EXPECT_FALSE(QVBugReporter::checkForCrashes(places(work))) << "it ended cleanly";
}

TEST(QVBugReporterTest, AnotherProgramsReportAndTheSwitchAreHonoured) {
    QTemporaryDir work;
    QVBugReporter::Places both = places(work, work.filePath("com.quorvant.global.plist"));
    const QString theirs = work.filePath("DiagnosticReports");
    both.crashFolders << theirs;
    QVBugReporter::startBugReporter(both, QDateTime::currentDateTime().addSecs(-60));
    // Newer than the launch, but "CardsweepHelper_" is not "Cardsweep_".
    TestFiles::write(both.crashFolders.front() + "/CardsweepHelper_2026-11-25-101010.crash",
                     "helper");
    EXPECT_FALSE(QVBugReporter::checkForCrashes(both));
    TestFiles::write(theirs + "/cardsweep_2026-11-25-101011.crash", "ours, any case");
    EXPECT_EQ(QVBugReporter::checkForCrashes(both), theirs + "/cardsweep_2026-11-25-101011.crash");

    PropertyList(PropertyList::Dictionary{{"disable-crash-reporter", "1"}})
        .writeFile(both.globalFile);
    const LogTail log;
    bool told = false;
    EXPECT_TRUE(QVBugReporter::startBugReporter(both, QDateTime::currentDateTime(),
                                                [&](const QString&) { told = true; }));
    EXPECT_FALSE(told) << "switched off: found, logged, not handed over";
    EXPECT_TRUE(log.text().contains("Application crashed on last launch"));
    EXPECT_TRUE(log.text().contains("Crash reporter disabled"));
}
