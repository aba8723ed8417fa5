// Property-list values: every type through a file and back, lenient reading of absent or
// mistyped values, and files that are missing told from files that are damaged.

#include <gtest/gtest.h>

#include <QTemporaryDir>

#include "PropertyList.h"

TEST(PropertyListTest, EveryValueTypeSurvivesAFileRoundTrip) {
    const QDateTime when = QDateTime::fromString("2026-11-22T10:15:30Z", Qt::ISODate);
    const PropertyList original = PropertyList::Dictionary{
        {"integer", qint64{-9007199254740993}},
        {"real", 0.9990010261535645},
        {"yes", true},
        {"no", false},
        {"string", "<A&B> \"quoted\" 日本 $(rm -rf /)\n"},
        {"empty", QString()},
        {"date", when},
        {"data", QByteArray("\x00\x01\xff binary", 10)},
        {"array", PropertyList::Array{1, "two", PropertyList::Array{}}},
        {"nested", PropertyList::Dictionary{{"selected", 1}, {"path", "/a"}}},
    };
    const QTemporaryDir dir;
    const QString path = dir.filePath("settings.plist");
    ASSERT_TRUE(original.writeFile(path));

    PropertyList::ReadStatus status = PropertyList::ReadStatus::Malformed;
    const PropertyList read = PropertyList::readFile(path, &status);
    EXPECT_EQ(status, PropertyList::ReadStatus::Ok);
    EXPECT_EQ(read, original);
}

TEST(PropertyListTest, AbsentAndMistypedValuesReadAsZeroNoOrEmpty) {
    const PropertyList dict = PropertyList::Dictionary{
        {"switch", 2},
        {"text", "12"},
        {"flag", "YES"},
    };
    const PropertyList& missing = dict["missing"];
    EXPECT_TRUE(missing.isAbsent() && missing.toInteger() == 0 && !missing.toBool() &&
                missing.toString().isEmpty() && missing["deeper"].toArray().empty());
    EXPECT_EQ(dict["text"].toInteger(), 12);
    EXPECT_TRUE(dict["flag"].toBool() && dict["switch"].toBool());
}

TEST(PropertyListTest, TellsMissingFromMalformedFiles) {
    const QTemporaryDir dir;
    PropertyList::ReadStatus status = PropertyList::ReadStatus::Ok;
    EXPECT_TRUE(PropertyList::readFile(dir.filePath("none"), &status).isAbsent());
    EXPECT_EQ(status, PropertyList::ReadStatus::Missing);

    for (const char* bad : {"not xml at all", "<plist><dict><key>a</key>",
                            "<plist><dict><key>a</key><integer>x1</integer></dict></plist>",
                            "<plist><dict><string>no key</string></dict></plist>", "<other/>"}) {
        EXPECT_TRUE(PropertyList::fromXml(bad, &status).isAbsent()) << bad;
        EXPECT_EQ(status, PropertyList::ReadStatus::Malformed) << bad;
    }
}
