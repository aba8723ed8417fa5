// Property-list values: every type through a file and back, lenient reading of absent or
// mistyped values, and files that are missing told from files that are damaged.

#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>

#include "PropertyList.h"

TEST(PropertyListTest, EveryValueTypeSurvivesAFileRoundTrip) {
    const QDateTime when =
        QDateTime::fromString(QStringLiteral("2026-11-22T10:15:30Z"), Qt::ISODate);
    const PropertyList original = PropertyList::Dictionary{
        {QStringLiteral("integer"), qint64{-9007199254740993}},
        {QStringLiteral("real"), 0.9990010261535645},
        {QStringLiteral("yes"), true},
        {QStringLiteral("no"), false},
        {QStringLiteral("string"), QStringLiteral("<A&B> \"quoted\" 日本 $(rm -rf /)\n")},
        {QStringLiteral("empty"), QString()},
        {QStringLiteral("date"), when},
        {QStringLiteral("data"), QByteArray("\x00\x01\xff binary", 10)},
        {QStringLiteral("array"),
         PropertyList::Array{1, QStringLiteral("two"), PropertyList::Array{}}},
        {QStringLiteral("nested"),
         PropertyList::Dictionary{{QStringLiteral("selected"), 1},
                                  {QStringLiteral("path"), QStringLiteral("/a")}}},
    };
    const QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("settings.plist"));
    ASSERT_TRUE(original.writeFile(path));

    PropertyList::ReadStatus status = PropertyList::ReadStatus::Malformed;
    const PropertyList read = PropertyList::readFile(path, &status);
    EXPECT_EQ(status, PropertyList::ReadStatus::Ok);
    EXPECT_EQ(read, original);
    EXPECT_EQ(read[QStringLiteral("date")].toDateTime(), when);
    EXPECT_EQ(read[QStringLiteral("array")][1].toString(), QStringLiteral("two"));
}

TEST(PropertyListTest, AbsentAndMistypedValuesReadAsZeroNoOrEmpty) {
    const PropertyList dict = PropertyList::Dictionary{
        {QStringLiteral("switch"), 2},
        {QStringLiteral("text"), QStringLiteral("12")},
        {QStringLiteral("flag"), QStringLiteral("YES")},
    };
    EXPECT_TRUE(dict[QStringLiteral("missing")].isAbsent());
    EXPECT_EQ(dict[QStringLiteral("missing")].toInteger(), 0);
    EXPECT_FALSE(dict[QStringLiteral("missing")].toBool());
    EXPECT_TRUE(dict[QStringLiteral("missing")].toString().isEmpty());
    EXPECT_TRUE(dict[QStringLiteral("missing")][QStringLiteral("deeper")].toArray().empty());
    EXPECT_EQ(dict[QStringLiteral("text")].toInteger(), 12);
    EXPECT_TRUE(dict[QStringLiteral("flag")].toBool());
    EXPECT_TRUE(dict[QStringLiteral("switch")].toBool());
}

TEST(PropertyListTest, TellsMissingFromMalformedFiles) {
    const QTemporaryDir dir;
    PropertyList::ReadStatus status = PropertyList::ReadStatus::Ok;
    EXPECT_TRUE(PropertyList::readFile(dir.filePath(QStringLiteral("none")), &status).isAbsent());
    EXPECT_EQ(status, PropertyList::ReadStatus::Missing);

    for (const QByteArray& bad :
         {QByteArray("not xml at all"), QByteArray("<plist><dict><key>a</key>"),
          QByteArray("<plist><dict><key>a</key><integer>x1</integer></dict></plist>"),
          QByteArray("<plist><dict><string>no key</string></dict></plist>"),
          QByteArray("<other/>")}) {
        EXPECT_TRUE(PropertyList::fromXml(bad, &status).isAbsent()) << bad.constData();
        EXPECT_EQ(status, PropertyList::ReadStatus::Malformed) << bad.constData();
    }
}
