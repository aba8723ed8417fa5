// Settings at start-up (defaults, migration, repairs), project histories, damaged settings
// files, the analytics switch in its own file, and one file kept by several programs.
#include <gtest/gtest.h>
#include <unistd.h>

#include <QDir>
#include <QSet>
#include <mutex>
#include <thread>

#include "Preferences.h"
#include "QVLocalPaths.h"
#include "TempHome.h"
#include "TestFiles.h"

namespace {

// Settings in a home of their own, optionally written before the store reads them.
class PreferencesTest : public testing::Test {
  protected:
    QString path() const { return home_.file(".config/Quorvant/com.quorvant.Cardsweep.plist"); }
    void write(const PropertyList::Dictionary& values) {
        QDir().mkpath(QFileInfo(path()).path());
        ASSERT_TRUE(PropertyList(values).writeFile(path()));
    }
    TempHome home_;
    std::optional<SettingsStore> store_;
    SettingsStore& store() {
        return store_ ? *store_ : store_.emplace(SettingsStore::defaultPath());
    }
};

}  // namespace

// Every declared key on a fresh install: a registered one reads as this table, value and stored
// type (integer switches are integers, not booleans); writing back what it reads as its type
// stores the same; any other key reads as absent. Nothing is written until something changes.
TEST_F(PreferencesTest, EveryKeyReadsItsRegisteredDefaultAndWritesItBackAsItsType) {
    const auto row = [](const char* title, int type, const char* value, int visible, int path,
                        int sheet) {
        return PropertyList::Dictionary{{"title", title},      {"type", type},
                                        {"defaultVal", value}, {"visible", visible},
                                        {"useInPath", path},   {"useInSpreadsheet", sheet}};
    };
    const PropertyList::Dictionary expected = {
        {"projectName", "Untitled Project"},
        {"destinationList",
         PropertyList::Array{PropertyList::Dictionary{
             {"selected", 1},
             {"path", QVLocalPaths::documentDirectory(true) + "/Transferred Media"}}}},
        {"processingEnabled", false},
        {"concurrentThreads", 1},
        {"transferType", 0},
        {"writeDoneFlag", 1},
        {"verifyFileSizes", 1},
        {"verifyFileChecksums", 1},
        {"actionGrowl", 1},
        {"actionBounceDock", 1},
        {"metadata", PropertyList::Array{row("Day", 1, "1", 1, 1, 1), row("Reel", 2, "0", 1, 1, 1),
                                         row("Timestamp", 3, "", 0, 1, 0)}},
        {"inlineVerification", 0},
        {"writeAscMhl", 1},
    };
    Preferences preferences(store());
    preferences.registerAndMigrate();
    preferences.repairConcurrentThreads();  // one thread is a valid count, left as it is
    EXPECT_FALSE(QFile::exists(path()));
    std::size_t registered = 0;
    const auto check = [&](const auto& key) {
        SCOPED_TRACE(key.name);
        const auto found = expected.find(key.key());
        if (found == expected.end()) {
            EXPECT_TRUE(store().object(key).isAbsent());
            return;
        }
        ++registered;
        EXPECT_EQ(store().object(key), found->second);
        store().set(key, store().get(key));
        EXPECT_EQ(PropertyList::readFile(path())[key.key()], found->second);
    };
    std::apply([&](const auto*... keys) { (check(*keys), ...); }, SettingsKey::all);
    EXPECT_EQ(registered, expected.size());
}

TEST_F(PreferencesTest, MigratesTheObsoleteListRepairsBadValuesAndKeepsAnEmptyListInMemory) {
    write({{SettingsKey::destinations, PropertyList::Array{"/a", 7, "/b"}},
           {SettingsKey::destinationList,
            PropertyList::Array{DestinationEntry{1, "/old"}.toPropertyList()}},
           {SettingsKey::concurrentThreads, 0}});
    Preferences preferences(store());
    EXPECT_EQ(preferences.registerAndMigrate(),
              (std::vector<DestinationEntry>{{1, "/a"}, {1, "/b"}}));
    preferences.repairConcurrentThreads();
    // What was migrated and repaired is on disk for the next start.
    const PropertyList onDisk = PropertyList::readFile(path());
    EXPECT_FALSE(onDisk.contains(SettingsKey::destinations));
    EXPECT_EQ(DestinationEntry::listFrom(onDisk[SettingsKey::destinationList]).size(), 2U);
    EXPECT_EQ(onDisk[SettingsKey::concurrentThreads].toInteger(), 2);

    // An empty list is replaced in memory only.
    store().setObject(SettingsKey::destinationList, PropertyList::Array{});
    EXPECT_EQ(Preferences(store()).registerAndMigrate(),
              std::vector<DestinationEntry>{SettingsKey::defaultDestination()});
    EXPECT_TRUE(Preferences(store()).destinationList().empty());
}

TEST_F(PreferencesTest, HistoriesKeepFifteenNewestFirstWithoutReordering) {
    Preferences preferences(store());
    for (int i = 1; i <= 16; ++i)
        preferences.addToHistory(SettingsKey::recentProjects, QString("Project %1").arg(i));
    const QStringList history = store().object(SettingsKey::recentProjects).toStringList();
    ASSERT_EQ(history.size(), 15);
    EXPECT_EQ(history.first() + "|" + history.last(), "Project 16|Project 2");
    EXPECT_EQ(preferences.addToHistory(SettingsKey::recentProjects, "Project 5"), history);
    EXPECT_EQ(preferences.addToHistory(SettingsKey::recentProjects, QString()), history);
    EXPECT_EQ(store().object(SettingsKey::recentProjects).toStringList(), history);
    store().setObject(SettingsKey::projectName, QString());
    EXPECT_EQ(preferences.projectTitle(), "Untitled Project");
}

TEST_F(PreferencesTest, DamagedSettingsFilesAreNeverOverwritten) {
    const QByteArray garbage("<plist><dict><key>projectName</key><string>Half written");
    TestFiles::write(path(), garbage);
    Preferences preferences(store());
    preferences.registerAndMigrate();
    EXPECT_EQ(preferences.projectTitle(), "Untitled Project");
    EXPECT_EQ(TestFiles::read(path() + ".corrupt"), garbage);
    store().setObject(SettingsKey::projectName, "Feature");
    EXPECT_EQ(PropertyList::readFile(path())[SettingsKey::projectName].toString(), "Feature");

    // One that can't even be read can't be copied aside either: it is left alone.
    if (geteuid() == 0)
        GTEST_SKIP() << "root reads a file whatever its mode, so it can't be made unreadable";
    const QByteArray before = TestFiles::read(path());
    QFile unreadable(path());
    ASSERT_TRUE(unreadable.setPermissions({}));
    SettingsStore(SettingsStore::defaultPath()).setObject(SettingsKey::projectName, "Lost");
    ASSERT_TRUE(unreadable.setPermissions(QFile::ReadOwner | QFile::WriteOwner));
    EXPECT_EQ(TestFiles::read(path()), before);
}

TEST_F(PreferencesTest, AnalyticsSwitchLivesInItsOwnFileAndKeepsOtherKeys) {
    EXPECT_FALSE(Preferences::qcLoggingEnabled());
    ASSERT_TRUE(PropertyList(PropertyList::Dictionary{{"lastUpload", 5}})
                    .writeFile(Preferences::qcFilePath()));
    Preferences::setQCLogging(true);
    EXPECT_TRUE(Preferences::qcLoggingEnabled());
    const PropertyList file = PropertyList::readFile(Preferences::qcFilePath());
    EXPECT_EQ(file["lastUpload"].toInteger(), 5);
    EXPECT_EQ(file["logQC"].type(), PropertyList::Type::Boolean);
    TestFiles::write(Preferences::qcFilePath(), "garbage");
    EXPECT_FALSE(Preferences::qcLoggingEnabled());
}

// Two programs keeping one settings file: neither loses what the other saved, and a number
// handed out by one is never handed out by the other, however their changes interleave.
TEST_F(PreferencesTest, StoresSharingAFileKeepEachOthersChangesAndNumbers) {
    SettingsStore& first = store();
    SettingsStore second(SettingsStore::defaultPath());
    first.setObject(SettingsKey::projectName, "Feature");
    second.setObject(SettingsKey::archiveDirectory, "/archive");
    EXPECT_EQ(SettingsStore(SettingsStore::defaultPath()).get(SettingsKey::projectName), "Feature");
    QList<qint64> handedOut;
    std::mutex mutex;
    std::vector<std::thread> threads;
    for (SettingsStore* each : {&first, &second, &first, &second}) {
        threads.emplace_back([&, each] {
            for (int i = 0; i < 5; ++i) {
                each->transaction([&] {
                    const qint64 next = each->object("counter").toInteger() + 1;
                    each->setObject("counter", next);
                    const std::lock_guard lock(mutex);
                    handedOut << next;
                });
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(QSet<qint64>(handedOut.begin(), handedOut.end()).size(), 20);
    EXPECT_EQ(SettingsStore(SettingsStore::defaultPath()).get(SettingsKey::archiveDirectory),
              "/archive");
}
