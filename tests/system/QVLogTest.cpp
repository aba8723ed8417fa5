#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <thread>

#include "PropertyList.h"
#include "QVLocalPaths.h"
#include "QVLog.h"
#include "TempHome.h"

namespace {

QString logPath(int index) {
    return QStringLiteral("%1/%2.%3.log")
        .arg(QVLog::logFolder(), QVLog::sharedController().appName())
        .arg(index);
}

QString readAll(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

void writeFile(const QString& path, const QByteArray& contents) {
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(contents);
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
    ASSERT_TRUE(QDir().mkpath(QVLog::logFolder()));
    for (int i = 1; i <= 5; ++i) {
        writeFile(logPath(i), QStringLiteral("old %1\n").arg(i).toUtf8());
    }
    QVLog::createNewLog();
    QVLog::finishWriting();

    for (int i = 2; i <= 5; ++i) {
        EXPECT_EQ(readAll(logPath(i)), QStringLiteral("old %1\n").arg(i - 1));
    }
    const QStringList header = lineTexts(logPath(1));
    ASSERT_EQ(header.size(), 5);
    EXPECT_TRUE(header[0].startsWith(QStringLiteral("Log started: ")));
    EXPECT_TRUE(header[1].startsWith(QStringLiteral("Version: ")));
    EXPECT_TRUE(header[2].startsWith(QStringLiteral("Path: /")));
    EXPECT_TRUE(header[3].startsWith(QStringLiteral("System: OS X ")));
    EXPECT_TRUE(header[3].contains(QStringLiteral("CPU(s), ")));
    EXPECT_EQ(header[4], QStringLiteral("Running in 64-bit mode"));
    EXPECT_TRUE(readAll(logPath(1))
                    .contains(QRegularExpression(QStringLiteral(
                        "^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d [+-]\\d{4} - Log started"))));
    EXPECT_EQ(QVLog::availableLogs().size(), 5);

    // Without a current log nothing rotates, even with older numbers present.
    const TempHome fresh;
    ASSERT_TRUE(QDir().mkpath(QVLog::logFolder()));
    writeFile(logPath(2), "second\n");
    QVLog::createNewLog();
    QVLog::finishWriting();
    EXPECT_EQ(readAll(logPath(2)), QStringLiteral("second\n"));
    EXPECT_FALSE(QFile::exists(logPath(3)));
    EXPECT_EQ(QVLog::availableLogs(), QStringList({logPath(1), logPath(2)}));
}

TEST(QVLogTest, LinesAreTrimmedAndBlankOnesDropped) {
    const TempHome home;
    QVLog::createNewLog();
    QVLog::appendLog(u"  copied %@ to %li destinations \n", QStringLiteral("A001.mov"), 2);
    QVLog::appendLog(u" \n\t ");
    QVLog::fastAppendLog(u"fast %@", QStringLiteral("line"));
    QVLog::finishWriting();
    const QStringList texts = lineTexts(logPath(1));
    ASSERT_EQ(texts.size(), 7);
    EXPECT_EQ(texts[5], QStringLiteral("copied A001.mov to 2 destinations"));
    EXPECT_EQ(texts[6], QStringLiteral("fast line"));
    EXPECT_EQ(QVLog::sharedController().bytesInQueue(), 0U);
}

TEST(QVLogTest, ShortLinesFromWorkersAreOnDiskWhenAppendReturns) {
    const TempHome home;
    QVLog::createNewLog();
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
    QVLog::createNewLog();
    const QString filler(990, u'x');
    int crossing = -1;
    for (int i = 0; i < 600 && crossing < 0; ++i) {
        QVLog::fastAppendLog(u"%04li %@", i, filler);
        QVLog::finishWriting();
        if (QFile::exists(logPath(2))) {
            crossing = i;
        }
    }
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
        QVLog::createNewLog();
        QVLog::appendLog(u"a line");
        QVLog::finishWriting();
        const std::string printed = testing::internal::GetCapturedStdout();
        EXPECT_EQ(printed == "Logging is disabled\n", disables) << value.toString().toStdString();
        EXPECT_EQ(QFile::exists(logPath(1)), !disables) << value.toString().toStdString();
    }
    const TempHome home;
    QVLog::createNewLog();
    EXPECT_FALSE(QVLog::sharedController().loggingDisabled());
}

TEST(QVLogTest, LogAndPrintDoublesPercentSignsOnStandardOutput) {
    const TempHome home;
    QVLog::createNewLog();
    testing::internal::CaptureStdout();
    QVLog::appendLogAndPrint(u"  %@ ", QStringLiteral("50% done"));
    QVLog::appendLogAndPrint(u"Error: %@ is not executable", QStringLiteral("/bin/x%@y"));
    QVLog::finishWriting();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "50%% done\nError: /bin/xy is not executable\n");
    const QStringList texts = lineTexts(logPath(1));
    ASSERT_EQ(texts.size(), 7);
    // The text went through the format path once more.
    EXPECT_EQ(texts[5], QStringLiteral("50 0one"));
    EXPECT_EQ(texts[6], QStringLiteral("Error: /bin/x(null)y is not executable"));
}

TEST(QVLogTest, AnUnwritableFolderIsReportedOnStandardOutput) {
    TempHome home;
    writeFile(home.file(QStringLiteral("blocked")), "a file where the folder should be");
    home.setEnv("XDG_STATE_HOME", home.file(QStringLiteral("blocked")).toLocal8Bit());
    testing::internal::CaptureStdout();
    QVLog::createNewLog();
    QVLog::appendLog(u"lost line");
    QVLog::finishWriting();
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_NE(printed.find("Unable to create folder "), std::string::npos) << printed;
    EXPECT_NE(printed.find("Unable to log the following information: lost line"), std::string::npos)
        << printed;
}

TEST(QVLogTest, ElevatedRunsLogToTheMachinesFolderButRotateTheUsers) {
    if (!QVLocalPaths::isSuperuser()) {
        GTEST_SKIP() << "needs to run as root to take the superuser's view";
    }
    TempHome home;
    if (!QVLocalPaths::currentConsoleUser().isEmpty()) {
        GTEST_SKIP() << "a graphical session owns this console; can't stand in a test user";
    }
    EXPECT_EQ(QVLog::sharedController().currentLogPath(), logPath(1));
    home.setEnv("SUDO_USER", "nobody");
    EXPECT_EQ(QVLog::logFolder(), QStringLiteral("/nonexistent/.local/state/Logs/Quorvant"));
    EXPECT_EQ(
        QVLog::sharedController().currentLogPath(),
        QStringLiteral("/var/log/Quorvant/%1.1.log").arg(QVLog::sharedController().appName()));
}
