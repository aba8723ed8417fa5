// Our JSON writer: keys in their given order, the format's escapes, the depth limit and the
// refusal of what JSON can't say.
#include <gtest/gtest.h>

#include "QVJSON.h"

TEST(QVJSONTest, WritesCompactTextInGivenOrderWithTheFormatsEscapes) {
    const JsonValue events(JsonValue::Array{
        JsonValue::Object{{"event", "specs"}, {"date", qint64(1700000000)}, {"data", "6.1.0"}},
        JsonValue::Object{{"z", true}, {"a", JsonValue()}, {"m", -3}}});
    EXPECT_EQ(QVJSON::stringify(events).value_or("failed"),
              R"([{"event":"specs","date":1700000000,"data":"6.1.0"},{"z":true,"a":null,"m":-3}])");
    const QString awkward = QString("q\" b\\ \b\t\n\f\r") + QChar(1) + QChar(0x1f) + "é😀/";
    EXPECT_EQ(QVJSON::stringify(JsonValue(awkward)).value_or("failed"),
              QByteArray(R"("q\" b\\ \b\t\n\f\r\u0001\u001fé😀/")"));
    // A property list's dictionary: the keys asked for first, the rest after in order.
    const PropertyList launch(PropertyList::Dictionary{{"event", PropertyList(QString("launch"))},
                                                       {"date", PropertyList(qint64(5))},
                                                       {"extra", PropertyList(qint64(1))}});
    EXPECT_EQ(*QVJSON::stringify(QVJSON::fromPropertyList(launch, {"event", "date"})),
              R"({"event":"launch","date":5,"extra":1})");
}

TEST(QVJSONTest, RefusesWhatItCannotSayAndNestingBeyondFiveHundredTwelve) {
    QString error;
    EXPECT_FALSE(QVJSON::stringify(QVJSON::fromPropertyList(PropertyList(2.5)), &error));
    EXPECT_EQ(error, "JSON serialisation not supported for real");
    const auto nested = [](int levels) {
        JsonValue value = 1;
        for (int i = 1; i < levels; ++i)
            value = JsonValue(JsonValue::Array{value});
        return value;
    };
    EXPECT_TRUE(QVJSON::stringify(nested(512)));
    EXPECT_FALSE(QVJSON::stringify(nested(513), &error));
    EXPECT_EQ(error, "Nested too deep");
}
