// Metadata fields and names: reel numbers counting up, the day counter, and destination
// folders built from the fields in the path.

#include <gtest/gtest.h>

#include <QDir>
#include <QTemporaryDir>

#include "FakeClock.h"
#include "MetadataNaming.h"
#include "Preferences.h"

namespace {

const QString kDay = "QVMetaDay";
const QString kReel = "QVMetaReel";
const QString kStamp = "QVMetaTimestamp";

// 2024-03-07 14:05:09 local time.
QDateTime localMoment(int month = 3, int day = 7) {
    return QDateTime(QDate(2024, month, day), QTime(14, 5, 9));
}

class Settings {
  public:
    Settings() : store_(dir_.filePath("settings.plist")) {
        store_.registerDefaults(Preferences::registeredDefaults());
    }
    SettingsStore& store() { return store_; }
    std::vector<MetadataField> fields() const {
        return MetadataField::listFrom(store_.object(SettingsKey::metadata));
    }
    std::vector<MetadataField> fieldsOnDisk() const {
        return MetadataField::listFrom(SettingsStore(store_.path()).object(SettingsKey::metadata));
    }
    void setFields(const PropertyList::Array& records) {
        store_.setObject(SettingsKey::metadata, records);
    }

  private:
    QTemporaryDir dir_;
    SettingsStore store_;
};

PropertyList::Dictionary record(const QString& title, MetadataFieldType type,
                                const QString& defaultVal, qint64 useInPath = 1) {
    return {{"title", title},
            {"type", static_cast<qint64>(type)},
            {"defaultVal", defaultVal},
            {"useInPath", useInPath}};
}

}  // namespace

TEST(MetadataNamingTest, IncrementNumberAndPadding) {
    // The carry keeps the padding; "A1B2" counts from the tail's first digit, so the B is lost.
    const std::vector<std::pair<QString, QString>> cases = {
        {"0", "1"},        {"", "1"},        {"A001", "A002"}, {"A009", "A010"},
        {"A999", "A1000"}, {"CARD", "CARD"}, {"B7 ", "B7 "},   {"A1B2", "A002"}};
    for (const auto& [input, expected] : cases)
        EXPECT_EQ(MetadataNaming::incrementNumber(input), expected) << input.toStdString();
}

// Listing and spending across restarts are the offload's tests; here each field type's value,
// a typed value that spends nothing, and forgetting a card.
TEST(MetadataNamingTest, EachFieldTypeGivesItsValueAndTypedValuesSpendNothing) {
    Settings settings;
    FakeClock clock(localMoment());
    const auto claim = [&](const MetadataValues& shown, const MetadataValues& listed) {
        return MetadataNaming::claimNumbers(settings.store(), clock, shown, listed, "ann o'neil");
    };
    const MetadataValues listed =
        MetadataNaming::populateDefaultMetadata(settings.store(), clock, "");
    EXPECT_EQ(listed, (MetadataValues{{kDay, "1"}, {kReel, "1"}, {kStamp, "2024_03_07_14_05_09"}}));
    MetadataValues typed = listed;
    typed[kReel] = "B7";
    EXPECT_EQ(claim(typed, listed).at(kReel), "B7");
    EXPECT_EQ(settings.fields().at(1).defaultVal, "0");

    settings.setFields({record("Roll", MetadataFieldType::IncrementingNumber, "A999"),
                        record("Cam Roll", MetadataFieldType::IncrementingNumber, ""),
                        record("Shot Date", MetadataFieldType::Date, "ignored"),
                        record("Operator", MetadataFieldType::UserName, "ignored"),
                        record("Notes", MetadataFieldType::Text, "wide \"lens\""),
                        record("Odd", static_cast<MetadataFieldType>(9), "ignored")});
    const MetadataValues values =
        MetadataNaming::populateDefaultMetadata(settings.store(), clock, "ann o'neil");
    const MetadataValues wanted = {
        {"QVMetaRoll", "A1000"},          {"QVMetaCamRoll", "1"},
        {"QVMetaShotDate", "2024-03-07"}, {"QVMetaOperator", "ann o'neil"},
        {"QVMetaNotes", "wide \"lens\""}, {"QVMetaOdd", ""}};
    EXPECT_EQ(values, wanted);
    EXPECT_EQ(claim(values, values), wanted);
    EXPECT_EQ(settings.fieldsOnDisk().at(0).defaultVal, "A1000");
    EXPECT_EQ(settings.fieldsOnDisk().at(1).defaultVal, "1");

    // The values a card's transfer used come back for that card, from disk, until forgotten.
    MetadataNaming::rememberCard(settings.store(), "uuid-a", listed);
    MetadataNaming::rememberCard(settings.store(), "uuid-b", wanted);
    EXPECT_EQ(MetadataNaming::recallCard(SettingsStore(settings.store().path()), "uuid-a"), listed);
    MetadataNaming::forgetCard(settings.store(), "uuid-a");
    EXPECT_FALSE(MetadataNaming::recallCard(settings.store(), "uuid-a"));
    EXPECT_FALSE(MetadataNaming::recallCard(settings.store(), ""));
    EXPECT_EQ(MetadataNaming::recallCard(settings.store(), "uuid-b"), wanted);
}

TEST(MetadataNamingTest, DayCountsUpOnlyWhenTheDayOfMonthChanged) {
    Settings settings;
    FakeClock clock(localMoment());
    const auto dayAfterTransferOn = [&](const QDateTime& lastTransfer) {
        settings.store().setObject(SettingsKey::lastTransferDate, lastTransfer);
        return MetadataNaming::populateDefaultMetadata(settings.store(), clock, "").at(kDay);
    };
    EXPECT_EQ(dayAfterTransferOn(localMoment(3, 6)), "2");
    EXPECT_EQ(settings.fields().at(0).defaultVal, "1");  // shown, not spent
    // A transfer on the new day keeps the day counted up for the rest of that day.
    const MetadataValues listed =
        MetadataNaming::populateDefaultMetadata(settings.store(), clock, "");
    EXPECT_EQ(MetadataNaming::claimNumbers(settings.store(), clock, listed, listed, "").at(kDay),
              "2");
    EXPECT_EQ(dayAfterTransferOn(localMoment(3, 7)), "2");
    settings.setFields({record("Day", MetadataFieldType::Number, "1")});
    EXPECT_EQ(dayAfterTransferOn(localMoment(3, 7).addSecs(-3600)), "1");
    // Same day number of an earlier month: not a new day.
    EXPECT_EQ(dayAfterTransferOn(localMoment(2, 7)), "1");

    // Any field titled Day, whatever its type; zero, negative or non-numeric never counts.
    const std::vector<std::pair<QString, QString>> days = {
        {"3", "4"}, {"0", "0"}, {"x", "x"}, {"-2", "-2"}, {" 5 rolls", "6"}};
    for (const auto& [stored, expected] : days) {
        settings.setFields({record("Day", MetadataFieldType::Text, stored)});
        EXPECT_EQ(dayAfterTransferOn(localMoment(3, 1)), expected) << stored.toStdString();
    }
}

TEST(MetadataNamingTest, DestinationLevelsFollowTheFieldsInPath) {
    Settings settings;
    FakeClock clock(localMoment());
    MetadataValues values = MetadataNaming::populateDefaultMetadata(settings.store(), clock, "");
    clock.advance(std::chrono::seconds(5));
    const std::vector<MetadataField> fields = settings.fields();
    EXPECT_EQ(MetadataNaming::composeDestination("/D", "P", values, fields, clock),
              "/D/P/1/1/2024_03_07_14_05_14");
    EXPECT_EQ(values.at(kStamp), "2024_03_07_14_05_14");  // the stamp that named the folder
    EXPECT_EQ(MetadataNaming::composeDestination("/D/", "P", values, {}, clock), "/D/P");
    EXPECT_EQ(MetadataNaming::composeDestination("/", "P", values, {}, clock), "/P");
    EXPECT_EQ(MetadataNaming::composeDestination("~/Media", "P", values, {}, clock),
              QDir::homePath() + "/Media/P");

    // Empty and missing values name "Unknown"; a "/" in a value makes a further level;
    // fields outside the path are skipped.
    MetadataValues odd = {{kDay, ""}, {"QVMetaScene", "12/B"}, {"QVMetaNotes", "n"}};
    const std::vector<MetadataField> oddFields = MetadataField::listFrom(
        PropertyList::Array{record("Day", MetadataFieldType::Number, "1"),
                            record("Reel", MetadataFieldType::IncrementingNumber, "4"),
                            record("Scene", MetadataFieldType::Text, ""),
                            record("Notes", MetadataFieldType::Text, "", 0)});
    EXPECT_EQ(MetadataNaming::composeDestination("/D", "My \"Film\" $(x)", odd, oddFields, clock),
              "/D/My \"Film\" $(x)/Unknown/Unknown/12/B");
    EXPECT_EQ(odd.count(kReel), 0U);

    // A title's spaces leave its identifier; keys this version does not know survive.
    PropertyList::Dictionary reel = record("Reel Name", MetadataFieldType::Text, "A1");
    reel["colour"] = "red";
    const auto reelFields = MetadataField::listFrom(PropertyList::Array{reel});
    EXPECT_EQ(reelFields.at(0).identifier(), "QVMetaReelName");
    EXPECT_EQ(MetadataField::toArray(reelFields)[0]["colour"].toString(), "red");
}
