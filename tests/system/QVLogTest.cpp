// The log files: rotation, the header, the 500,000-byte roll-over, the global switch, line
// clean-up and printing, and what happens when the folder cannot be written.

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
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
    for (const QString& line : readAll(path).split(u'\n', Qt::SkipEmptyParts)) {
        const qsizetype dash = line.indexOf(QStringLiteral(" - "));
        texts << (dash < 0 ? line : line.mid(dash + 3));
    }
    return texts;
}

void setGlobalSwitch(const PropertyList& value) {
    const QString path =
        QVLocalPaths::prefsDirectory(true) + QStringLiteral("/com.quorvant.global.plist");
    ASSERT_TRUE(PropertyList(PropertyList::Dictionary{{QStringLiteral("disable-logging"), value}})
                    .writeFile(path));
}

}  // namespace

TEST(QVLogTest, StartingALogRotatesFiveAndWritesTheHeader) {
    const TempHome home;
    for (int i = 1; i <= 5; ++i) {
        TestFiles::write(logPath(i), QStringLiteral("old %1\n").arg(i).toUtf8());
    }
    QVLog::createNewLog(LogPlaces::forCurrentUser(), SystemClock::shared());
    QVLog::finishWriting();

    for (int i = 2; i <= 5; ++i) {
        EXPECT_EQ(readAll(logPath(i)), QStringLiteral("old %1\n").arg(i - 1));
    }
    const QStringList header = lineTexts(logPath(1));
    ASSERT_EQ(header.size(), 5);
    EXPECT_TRUE(header[0].startsWith(QStringLiteral("Log started: ")));
    EXPECT_TRUE(header[1].startsWith(QStringLiteral("Version: ")));
    EXPECT_TRUE(header[2].startsWith(QStringLiteral("Path: /")));
    EXPECT_TRUE(header[3].startsWith(QStringLiteral("System: Linux ")));
    EXPECT_EQ(header[4], QStringLiteral("Running in 64-bit mode"));
    EXPECT_TRUE(readAll(logPath(1))
                    .contains(QRegularExpression(QStringLiteral(
                        "^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d [+-]\\d{4} - Log started"))));
    EXPECT_EQ(QVLog::availableLogs().size(), 5);

    // Without a current log nothing rotates, even with older numbers present.
    const TempHome fresh;
    TestFiles::write(logPath(2), "second\n");
    QVLog::createNewLog(LogPlaces::forCurrentUser(), SystemClock::shared());
    QVLog::finishWriting();
    EXPECT_EQ(readAll(logPath(2)), QStringLiteral("second\n"));
    EXPECT_FALSE(QFile::exists(logPath(3)));
    EXPECT_EQ(QVLog::availableLogs(), QStringList({logPath(1), logPath(2)}));
}

TEST(QVLogTest, ShortLinesFromWorkersAreOnDiskWhenAppendReturns) {
    const TempHome home;
    QVLog::createNewLog(LogPlaces::forCurrentUser(), SystemClock::shared());
    bool seen = false;
    std::thread worker([&seen] {
        QVLog::appendLog(u"worker reached step %li", 3);
        seen = readAll(logPath(1)).contains(QStringLiteral("worker reached step 3"));
    });
    worker.join();
    EXPECT_TRUE(seen);
}

TEST(QVLogTest, RollsOverAtHalfAMillionBytes) {
    const TempHome home;
    QVLog::createNewLog(LogPlaces::forCurrentUser(), SystemClock::shared());
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

    const QString old = readAll(logPath(2));
    EXPECT_GE(old.toUtf8().size(), 500000);
    EXPECT_LT(old.toUtf8().size(), 500000 + 1100);
    EXPECT_TRUE(lineTexts(logPath(2))
                    .last()
                    .startsWith(QStringLiteral("%1 ").arg(crossing, 4, 10, QLatin1Char('0'))));

    const QStringList fresh = lineTexts(logPath(1));
    ASSERT_EQ(fresh.size(), 7);
    EXPECT_TRUE(fresh[0].startsWith(QStringLiteral("Log started: ")));
    EXPECT_EQ(fresh[5], QStringLiteral("Log truncated at 500KB"));
    EXPECT_EQ(fresh[6], QStringLiteral("after the roll-over"));

    // Switched off before the next roll-over: its notice is dropped, not put in this log.
    setGlobalSwitch(QStringLiteral("1"));
    testing::internal::CaptureStdout();
    EXPECT_GE(fillUntil([] { return QVLog::sharedController().loggingDisabled(); }), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Logging is disabled\n");
    EXPECT_NE(lineTexts(logPath(1)).last(), QStringLiteral("Log truncated at 500KB"));
}

TEST(QVLogTest, GlobalSwitchTurnsLoggingOffOnlyForOne) {
    const std::vector<std::pair<PropertyList, bool>> cases = {
        {QStringLiteral("1"), true},    {1, true},  {true, true}, {QStringLiteral("0"), false},
        {QStringLiteral("yes"), false}, {0, false},
    };
    for (const auto& [value, disables] : cases) {
        const TempHome home;
        setGlobalSwitch(value);
        testing::internal::CaptureStdout();
        QVLog::createNewLog(LogPlaces::forCurrentUser(), SystemClock::shared());
        QVLog::appendLog(u"a line");
        QVLog::finishWriting();
        const std::string printed = testing::internal::GetCapturedStdout();
        EXPECT_EQ(printed == "Logging is disabled\n", disables) << value.toString().toStdString();
        EXPECT_EQ(QFile::exists(logPath(1)), !disables) << value.toString().toStdString();
    }
    const TempHome home;
    QVLog::createNewLog(LogPlaces::forCurrentUser(), SystemClock::shared());
    EXPECT_FALSE(QVLog::sharedController().loggingDisabled());
}

TEST(QVLogTest, LinesAreTrimmedAndPrintedLinesDoublePercentSigns) {
    const TempHome home;
    QVLog::createNewLog(LogPlaces::forCurrentUser(), SystemClock::shared());
    const std::uint64_t queued = QVLog::sharedController().bytesInQueue();  // lines dropped earlier
    QVLog::appendLog(u"  copied %@ to %li destinations \n", QStringLiteral("A001.mov"), 2);
    QVLog::appendLog(u" \n\t ");
    QVLog::fastAppendLog(u"fast %@", QStringLiteral("line"));
    testing::internal::CaptureStdout();
    QVLog::appendLogAndPrint(u"  %@ ", QStringLiteral("50% done"));
    QVLog::appendLogAndPrint(u"Error: %@ is not executable", QStringLiteral("/bin/x%@y"));
    const QString exception =
        QVException::logException(std::out_of_range("index 3"), "-[QVVolume copy]");
    QVLog::finishWriting();
    EXPECT_EQ(exception,
              QStringLiteral("Exception in -[QVVolume copy]. std::out_of_range - index 3."));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "50%% done\nError: /bin/xy is not executable\n" + exception.toStdString() + "\n");
    // Printed lines went through the format path once more.
    EXPECT_EQ(lineTexts(logPath(1)).mid(5),
              QStringList({QStringLiteral("copied A001.mov to 2 destinations"),
                           QStringLiteral("fast line"), QStringLiteral("50 0one"),
                           QStringLiteral("Error: /bin/x(null)y is not executable"), exception}));
    EXPECT_EQ(QVLog::sharedController().bytesInQueue(), queued);
}

TEST(QVLogTest, AnUnwritableFolderIsReportedOnStandardOutput) {
    TempHome home;
    TestFiles::write(home.file(QStringLiteral("blocked")), "a file where the folder should be");
    home.setEnv("XDG_STATE_HOME", home.file(QStringLiteral("blocked")).toLocal8Bit());
    testing::internal::CaptureStdout();
    QVLog::createNewLog(LogPlaces::forCurrentUser(), SystemClock::shared());
    QVLog::appendLog(u"lost line");
    QVLog::finishWriting();
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_NE(printed.find("Unable to create folder "), std::string::npos) << printed;
    EXPECT_NE(printed.find("Unable to log the following information: lost line"), std::string::npos)
        << printed;

    // With the folder back but no log started, a line makes no headerless log of its own.
    home.setEnv("XDG_STATE_HOME", home.file(QStringLiteral("state")).toLocal8Bit());
    ASSERT_TRUE(QDir().mkpath(LogPlaces::forCurrentUser().folder));
    QVLog::appendLog(u"still lost");
    QVLog::finishWriting();
    EXPECT_FALSE(QFile::exists(logPath(1)));
}

TEST(QVLogTest, ElevatedRunsLogToTheMachinesFolderButRotateTheUsers) {
    if (!QVLocalPaths::isSuperuser()) {
        GTEST_SKIP() << "needs to run as root to take the superuser's view";
    }
    TempHome home;
    if (!QVLocalPaths::currentConsoleUser().isEmpty()) {
        GTEST_SKIP() << "a graphical session owns this console; can't stand in a test user";
    }
    EXPECT_TRUE(LogPlaces::forCurrentUser().currentFolder.isEmpty());
    home.setEnv("SUDO_USER", "nobody");
    const QVLog::Places places = LogPlaces::forCurrentUser();
    EXPECT_EQ(places.folder, QStringLiteral("/nonexistent/.local/state/Logs/Quorvant"));
    EXPECT_EQ(places.currentFolder, QStringLiteral("/var/log/Quorvant"));
}
