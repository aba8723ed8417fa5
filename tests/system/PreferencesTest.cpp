// Settings at start-up (defaults, migration, repairs), project histories, damaged settings
// files, the analytics switch in its own file, and one file kept by several programs.

#include <gtest/gtest.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QSet>
#include <mutex>
#include <thread>
#include <vector>

#include "Preferences.h"
#include "QVLocalPaths.h"
#include "TempHome.h"
#include "TestFiles.h"

namespace {

QString settingsPath(const TempHome& home) {
    return home.file(QStringLiteral(".config/Quorvant/com.quorvant.Cardsweep.plist"));
}

void writeSettings(const TempHome& home, const PropertyList::Dictionary& values) {
    QDir().mkpath(home.file(QStringLiteral(".config/Quorvant")));
    ASSERT_TRUE(PropertyList(values).writeFile(settingsPath(home)));
}

}  // namespace

TEST(PreferencesTest, FreshInstallReadsTheRegisteredDefaultsWithoutWritingThem) {
    const TempHome home;
    SettingsStore store(SettingsStore::defaultPath());
    Preferences preferences(store);
    const std::vector<DestinationEntry> destinations = preferences.registerAndMigrate();

    ASSERT_EQ(destinations.size(), 1U);
    EXPECT_EQ(destinations[0].path,
              QVLocalPaths::documentDirectory(true) + QStringLiteral("/Transferred Media"));
    EXPECT_TRUE(destinations[0].isSelected());
    // One thread is a valid count, left as it is.
    preferences.repairConcurrentThreads();
    EXPECT_EQ(store.integer(SettingsKey::concurrentThreads), 1);
    EXPECT_FALSE(QFile::exists(settingsPath(home)));
}

TEST(PreferencesTest, MigratesTheObsoleteListAndRepairsBadValues) {
    const TempHome home;
    writeSettings(
        home, {{SettingsKey::destinations,
                PropertyList::Array{QStringLiteral("/a"), 7, QStringLiteral("/b")}},
               {SettingsKey::destinationList,
                PropertyList::Array{DestinationEntry{1, QStringLiteral("/old")}.toPropertyList()}},
               {SettingsKey::concurrentThreads, 0}});
    {
        SettingsStore store(SettingsStore::defaultPath());
        Preferences preferences(store);
        const std::vector<DestinationEntry> expected = {{1, QStringLiteral("/a")},
                                                        {1, QStringLiteral("/b")}};
        EXPECT_EQ(preferences.registerAndMigrate(), expected);
        preferences.repairConcurrentThreads();
    }
    // What was migrated and repaired is on disk for the next start.
    const PropertyList onDisk = PropertyList::readFile(settingsPath(home));
    EXPECT_FALSE(onDisk.contains(SettingsKey::destinations));
    EXPECT_EQ(DestinationEntry::listFrom(onDisk[SettingsKey::destinationList]).size(), 2U);
    EXPECT_EQ(onDisk[SettingsKey::concurrentThreads].toInteger(), 2);
}

TEST(PreferencesTest, EmptyListIsReplacedInMemoryOnly) {
    const TempHome home;
    writeSettings(home, {{SettingsKey::destinationList, PropertyList::Array{}}});
    SettingsStore store(SettingsStore::defaultPath());
    Preferences preferences(store);
    const std::vector<DestinationEntry> list = preferences.registerAndMigrate();
    ASSERT_EQ(list.size(), 1U);
    EXPECT_EQ(list[0], Preferences::defaultDestination());
    EXPECT_TRUE(preferences.destinationList().empty());
}

TEST(PreferencesTest, HistoriesKeepFifteenNewestFirstWithoutReordering) {
    const TempHome home;
    SettingsStore store(SettingsStore::defaultPath());
    Preferences preferences(store);
    for (int i = 1; i <= 16; ++i) {
        preferences.addToHistory(SettingsKey::recentProjects, QStringLiteral("Project %1").arg(i));
    }
    QStringList history = store.object(SettingsKey::recentProjects).toStringList();
    ASSERT_EQ(history.size(), 15);
    EXPECT_EQ(history.first(), QStringLiteral("Project 16"));
    EXPECT_EQ(history.last(), QStringLiteral("Project 2"));

    EXPECT_EQ(preferences.addToHistory(SettingsKey::recentProjects, QStringLiteral("Project 5")),
              history);
    EXPECT_EQ(preferences.addToHistory(SettingsKey::recentProjects, QString()), history);
    EXPECT_EQ(store.object(SettingsKey::recentProjects).toStringList(), history);

    store.setObject(SettingsKey::projectName, QString());
    EXPECT_EQ(preferences.projectTitle(), QStringLiteral("Untitled Project"));
}

TEST(PreferencesTest, DamagedSettingsFilesAreNeverOverwritten) {
    const TempHome home;
    const QByteArray garbage("<plist><dict><key>projectName</key><string>Half written");
    TestFiles::write(settingsPath(home), garbage);
    SettingsStore store(SettingsStore::defaultPath());
    Preferences preferences(store);
    preferences.registerAndMigrate();
    EXPECT_EQ(preferences.projectTitle(), QStringLiteral("Untitled Project"));

    EXPECT_EQ(TestFiles::read(settingsPath(home) + QStringLiteral(".corrupt")), garbage);

    store.setObject(SettingsKey::projectName, QStringLiteral("Feature"));
    EXPECT_EQ(PropertyList::readFile(settingsPath(home))[SettingsKey::projectName].toString(),
              QStringLiteral("Feature"));

    // One that can't even be read can't be copied aside either: it is left alone.
    if (geteuid() == 0) {
        GTEST_SKIP() << "root reads a file whatever its mode, so it can't be made unreadable";
    }
    const QByteArray before = PropertyList::readFile(settingsPath(home)).toXml();
    QFile unreadable(settingsPath(home));
    ASSERT_TRUE(unreadable.setPermissions({}));
    SettingsStore(SettingsStore::defaultPath())
        .setObject(SettingsKey::projectName, QStringLiteral("Lost"));
    ASSERT_TRUE(unreadable.setPermissions(QFile::ReadOwner | QFile::WriteOwner));
    EXPECT_EQ(PropertyList::readFile(settingsPath(home)).toXml(), before);
}

TEST(PreferencesTest, AnalyticsSwitchLivesInItsOwnFileAndKeepsOtherKeys) {
    const TempHome home;
    EXPECT_FALSE(Preferences::qcLoggingEnabled());
    ASSERT_TRUE(PropertyList(PropertyList::Dictionary{{QStringLiteral("lastUpload"), 5}})
                    .writeFile(Preferences::qcFilePath()));
    Preferences::setQCLogging(true);
    EXPECT_TRUE(Preferences::qcLoggingEnabled());
    const PropertyList file = PropertyList::readFile(Preferences::qcFilePath());
    EXPECT_EQ(file[QStringLiteral("lastUpload")].toInteger(), 5);
    EXPECT_EQ(file[QStringLiteral("logQC")].type(), PropertyList::Type::Boolean);

    TestFiles::write(Preferences::qcFilePath(), "garbage");
    EXPECT_FALSE(Preferences::qcLoggingEnabled());
    Preferences::setQCLogging(false);
    EXPECT_FALSE(Preferences::qcLoggingEnabled());
}

// Two programs keeping one settings file: neither loses what the other saved, and a number
// handed out by one is never handed out by the other, however their changes interleave.
TEST(PreferencesTest, StoresSharingAFileKeepEachOthersChangesAndNumbers) {
    const TempHome home;
    SettingsStore first(SettingsStore::defaultPath());
    SettingsStore second(SettingsStore::defaultPath());
    Preferences(first).registerAndMigrate();
    Preferences(second).registerAndMigrate();
    first.setObject(SettingsKey::projectName, PropertyList(QStringLiteral("Feature")));
    second.setObject(SettingsKey::archiveDirectory, PropertyList(QStringLiteral("/archive")));
    EXPECT_EQ(SettingsStore(SettingsStore::defaultPath()).string(SettingsKey::projectName),
              "Feature");

    QList<qint64> handedOut;
    std::vector<std::thread> threads;
    std::mutex mutex;
    for (SettingsStore* store : {&first, &second, &first, &second}) {
        threads.emplace_back([&, store] {
            for (int i = 0; i < 5; ++i) {
                store->transaction([&] {
                    const qint64 next = store->integer(QStringLiteral("counter")) + 1;
                    store->setObject(QStringLiteral("counter"), PropertyList(next));
                    const std::lock_guard lock(mutex);
                    handedOut << next;
                });
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(QSet<qint64>(handedOut.begin(), handedOut.end()).size(), 20);
    EXPECT_EQ(SettingsStore(SettingsStore::defaultPath()).string(SettingsKey::archiveDirectory),
              "/archive");
}
