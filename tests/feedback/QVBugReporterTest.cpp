// The last run's crash: a child that aborts or takes SIGSEGV leaves a report our handler wrote
// and is found at the next start; a clean exit is not; an older report, another program's
// report, and the global switch are honoured.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include "LogTail.h"
#include "PropertyList.h"
#include "QVBugReporter.h"
#include "TestFiles.h"

namespace {

struct ChildRun {
    QProcess::ExitStatus status;
    int code;
};

ChildRun runChild(const QString& record, const QString& folder, const QString& mode) {
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("ASAN_OPTIONS", "detect_leaks=0");
    child.setProcessEnvironment(environment);
    child.start(CARDSWEEP_CRASH_CHILD, {record, folder, mode});
    child.waitForFinished(30000);
    return {child.exitStatus(), child.exitCode()};
}

}  // namespace

TEST(QVBugReporterTest, AnAbortAndASegmentationFaultAreFoundAtTheNextStartACleanExitIsNot) {
    for (const QString mode : {"abort", "segv"}) {
        QTemporaryDir work;
        const QString folder = work.filePath("Logs/CrashReporter");
        const QVBugReporter::Places places{
            work.filePath("launches.plist"), {folder}, {}, "Cardsweep"};
        const ChildRun run = runChild(places.recordFile, folder, mode);
        EXPECT_EQ(run.status, QProcess::CrashExit) << mode.toStdString();
        const auto report = QVBugReporter::checkForCrashes(places);
        ASSERT_TRUE(report) << mode.toStdString();
        EXPECT_TRUE(QFileInfo(*report).fileName().contains(
            QRegularExpression("^Cardsweep_\\d{4}-\\d{2}-\\d{2}-\\d{6}\\.crash$")))
            << report->toStdString();
        const QByteArray text = TestFiles::read(*report);
        EXPECT_TRUE(text.contains(mode == "abort" ? "Signal: SIGABRT" : "Signal: SIGSEGV"))
            << text.toStdString();
        EXPECT_TRUE(text.contains("Backtrace:\n")) << text.toStdString();
        EXPECT_GT(text.count('\n'), 6) << "frames follow";

        // The next run starts: told once, then its own launch is recorded.
        QStringList told;
        QVBugReporter::startBugReporter(places, QDateTime::currentDateTime().addSecs(1),
                                        [&](const QString& path) { told << path; });
        EXPECT_EQ(told, QStringList{*report});
        EXPECT_FALSE(QVBugReporter::checkForCrashes(places)) << "an older report is ignored";
    }
    QTemporaryDir work;
    const QString folder = work.filePath("Logs/CrashReporter");
    const QVBugReporter::Places places{work.filePath("launches.plist"), {folder}, {}, "Cardsweep"};
    TestFiles::write(folder + "/Cardsweep_2020-01-01-000000.crash", "an old one");
    const ChildRun clean = runChild(places.recordFile, folder, "clean");
    EXPECT_EQ(clean.status, QProcess::NormalExit);
    EXPECT_EQ(clean.code, 0);
    EXPECT_FALSE(QVBugReporter::checkForCrashes(places)) << "it ended cleanly";
}

TEST(QVBugReporterTest, AnotherProgramsReportAndTheSwitchAreHonoured) {
    QTemporaryDir work;
    const QString mine = work.filePath("CrashReporter");
    const QString theirs = work.filePath("DiagnosticReports");
    QVBugReporter::Places places{work.filePath("launches.plist"),
                                 {mine, theirs},
                                 work.filePath("com.quorvant.global.plist"),
                                 "Cardsweep"};
    QVBugReporter::startBugReporter(places, QDateTime::currentDateTime().addSecs(-60));
    // Newer than the launch, but "CardsweepHelper_" is not "Cardsweep_".
    TestFiles::write(mine + "/CardsweepHelper_2026-11-25-101010.crash", "helper");
    EXPECT_FALSE(QVBugReporter::checkForCrashes(places));
    TestFiles::write(theirs + "/cardsweep_2026-11-25-101011.crash", "ours, any case");
    EXPECT_EQ(QVBugReporter::checkForCrashes(places),
              theirs + "/cardsweep_2026-11-25-101011.crash");

    PropertyList(PropertyList::Dictionary{{"disable-crash-reporter", PropertyList(QString("1"))}})
        .writeFile(places.globalFile);
    const LogTail log;
    bool told = false;
    EXPECT_TRUE(QVBugReporter::startBugReporter(places, QDateTime::currentDateTime(),
                                                [&](const QString&) { told = true; }));
    EXPECT_FALSE(told) << "switched off: found, logged, not handed over";
    EXPECT_TRUE(log.text().contains("Application crashed on last launch"));
    EXPECT_TRUE(log.text().contains("Crash reporter disabled"));
}
