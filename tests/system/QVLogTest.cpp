// The log files: rotation, the header, the 500,000-byte roll-over, the global switch, line
// clean-up and printing, and what happens when the folder cannot be written.
#include <gtest/gtest.h>

#include <QDir>
#include <QRegularExpression>
#include <functional>
#include <stdexcept>
#include <thread>

#include "LogPlaces.h"
#include "PropertyList.h"
#include "QVException.h"
#include "QVLocalPaths.h"
#include "QVLog.h"
#include "SystemClock.h"
#include "TempHome.h"
#include "TestFiles.h"

namespace {

QString logPath(int index) {
    return QStringLiteral("%1/%2.%3.log")
        .arg(LogPlaces::forCurrentUser().folder, QVLog::sharedController().appName())
        .arg(index);
}

QString readAll(const QString& path) {
    return QString::fromUtf8(TestFiles::read(path));
}

// The text of each line, without its date prefix.
QStringList lineTexts(const QString& path) {
    QStringList texts;
    for (const QString& line : readAll(path).split(u'\n', Qt::SkipEmptyParts))
        texts << line.mid(line.indexOf(" - ") < 0 ? 0 : line.indexOf(" - ") + 3);
    return texts;
}

void startLog() {
    QVLog::createNewLog(LogPlaces::forCurrentUser(), SystemClock::shared());
}

void setGlobalSwitch(const PropertyList& value) {
    const QString path = QVLocalPaths::prefsDirectory(true) + "/com.quorvant.global.plist";
    ASSERT_TRUE(PropertyList(PropertyList::Dictionary{{"disable-logging", value}}).writeFile(path));
}

const QRegularExpression kHeader(
    "^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d [+-]\\d{4} - Log started: .*\n.* - Version: .*\n"
    ".* - Path: /.*\n.* - System: Linux .*\n.* - Running in 64-bit mode\n");

}  // namespace

TEST(QVLogTest, StartingALogRotatesFiveAndWritesTheHeader) {
    const TempHome home;
    for (int i = 1; i <= 5; ++i)
        TestFiles::write(logPath(i), "old " + QByteArray::number(i));
    startLog();
    QVLog::finishWriting();
    for (int i = 2; i <= 5; ++i)
        EXPECT_EQ(readAll(logPath(i)), "old " + QString::number(i - 1));
    EXPECT_TRUE(kHeader.match(readAll(logPath(1))).hasMatch()) << readAll(logPath(1)).toStdString();
    EXPECT_EQ(lineTexts(logPath(1)).size(), 5);
    EXPECT_EQ(QVLog::availableLogs().size(), 5);

    // Without a current log nothing rotates, even with older numbers present.
    const TempHome fresh;
    TestFiles::write(logPath(2), "second\n");
    startLog();
    QVLog::finishWriting();
    EXPECT_EQ(readAll(logPath(2)), "second\n");
    EXPECT_EQ(QVLog::availableLogs(), QStringList({logPath(1), logPath(2)}));
}

TEST(QVLogTest, ShortLinesFromWorkersAreOnDiskWhenAppendReturns) {
    const TempHome home;
    startLog();
    bool seen = false;
    std::thread([&seen] {
        QVLog::appendLog(u"worker reached step %li", 3);
        seen = readAll(logPath(1)).contains("worker reached step 3");
    }).join();
    EXPECT_TRUE(seen);
}

TEST(QVLogTest, RollsOverAtHalfAMillionBytes) {
    const TempHome home;
    startLog();
    // Logs numbered 1 KB lines until stop() holds; the number of the last one, or -1.
    const auto fillUntil = [](const std::function<bool()>& stop) {
        for (int i = 0; i < 600; ++i) {
            QVLog::fastAppendLog(u"%04li %@", i, QString(990, u'x'));
            QVLog::finishWriting();
            if (stop())
                return i;
        }
        return -1;
    };
    const int crossing = fillUntil([] { return QFile::exists(logPath(2)); });
    ASSERT_GE(crossing, 0) << "no second log after 600 KB";
    QVLog::fastAppendLog(u"after the roll-over");
    QVLog::finishWriting();
    const qsizetype old = TestFiles::read(logPath(2)).size();
    EXPECT_TRUE(old >= 500000 && old < 500000 + 1100) << old;
    EXPECT_TRUE(lineTexts(logPath(2)).last().startsWith(QString::asprintf("%04d ", crossing)));
    EXPECT_TRUE(kHeader.match(readAll(logPath(1))).hasMatch());
    EXPECT_EQ(lineTexts(logPath(1)).mid(5),
              QStringList({"Log truncated at 500KB", "after the roll-over"}));

    // Switched off before the next roll-over: its notice is dropped, not put in this log.
    setGlobalSwitch("1");
    testing::internal::CaptureStdout();
    EXPECT_GE(fillUntil([] { return QVLog::sharedController().loggingDisabled(); }), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Logging is disabled\n");
    EXPECT_NE(lineTexts(logPath(1)).last(), "Log truncated at 500KB");
}

TEST(QVLogTest, GlobalSwitchTurnsLoggingOffOnlyForOne) {
    const std::pair<PropertyList, bool> cases[] = {{"1", true},  {1, true},      {true, true},
                                                   {"0", false}, {"yes", false}, {0, false}};
    for (const auto& [value, disables] : cases) {
        SCOPED_TRACE(value.toString().toStdString());
        const TempHome home;
        setGlobalSwitch(value);
        testing::internal::CaptureStdout();
        startLog();
        QVLog::appendLog(u"a line");
        QVLog::finishWriting();
        EXPECT_EQ(testing::internal::GetCapturedStdout() == "Logging is disabled\n", disables);
        EXPECT_EQ(QFile::exists(logPath(1)), !disables);
    }
    const TempHome home;
    startLog();
    EXPECT_FALSE(QVLog::sharedController().loggingDisabled());
}

TEST(QVLogTest, LinesAreTrimmedAndPrintedLinesDoublePercentSigns) {
    const TempHome home;
    startLog();
    const std::uint64_t queued = QVLog::sharedController().bytesInQueue();  // lines dropped earlier
    QVLog::appendLog(u"  copied %@ to %li destinations \n", "A001.mov", 2);
    QVLog::appendLog(u" \n\t ");
    QVLog::fastAppendLog(u"fast %@", "line");
    testing::internal::CaptureStdout();
    QVLog::appendLogAndPrint(u"  %@ ", "50% done");
    QVLog::appendLogAndPrint(u"Error: %@ is not executable", "/bin/x%@y");
    const QString exception =
        QVException::logException(std::out_of_range("index 3"), "-[QVVolume copy]");
    QVLog::finishWriting();
    EXPECT_EQ(exception, "Exception in -[QVVolume copy]. std::out_of_range - index 3.");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "50%% done\nError: /bin/xy is not executable\n" + exception.toStdString() + "\n");
    // Printed lines went through the format path once more.
    EXPECT_EQ(lineTexts(logPath(1)).mid(5),
              QStringList({"copied A001.mov to 2 destinations", "fast line", "50 0one",
                           "Error: /bin/x(null)y is not executable", exception}));
    EXPECT_EQ(QVLog::sharedController().bytesInQueue(), queued);
}

TEST(QVLogTest, AnUnwritableFolderIsReportedOnStandardOutput) {
    TempHome home;
    TestFiles::write(home.file("blocked"), "a file where the folder should be");
    home.setEnv("XDG_STATE_HOME", home.file("blocked").toLocal8Bit());
    testing::internal::CaptureStdout();
    startLog();
    QVLog::appendLog(u"lost line");
    QVLog::finishWriting();
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_NE(printed.find("Unable to create folder "), std::string::npos) << printed;
    EXPECT_NE(printed.find("Unable to log the following information: lost line"),
              std::string::npos);

    // With the folder back but no log started, a line makes no headerless log of its own.
    home.setEnv("XDG_STATE_HOME", home.file("state").toLocal8Bit());
    ASSERT_TRUE(QDir().mkpath(LogPlaces::forCurrentUser().folder));
    QVLog::appendLog(u"still lost");
    QVLog::finishWriting();
    EXPECT_FALSE(QFile::exists(logPath(1)));
}

TEST(QVLogTest, ElevatedRunsLogToTheMachinesFolderButRotateTheUsers) {
    TempHome home;
    if (!QVLocalPaths::isSuperuser() || !QVLocalPaths::currentConsoleUser().isEmpty())
        GTEST_SKIP() << "needs root without a graphical session, to stand in a test user";
    EXPECT_TRUE(LogPlaces::forCurrentUser().currentFolder.isEmpty());
    home.setEnv("SUDO_USER", "nobody");
    const QVLog::Places places = LogPlaces::forCurrentUser();
    EXPECT_EQ(places.folder, "/nonexistent/.local/state/Logs/Quorvant");
    EXPECT_EQ(places.currentFolder, "/var/log/Quorvant");
}
