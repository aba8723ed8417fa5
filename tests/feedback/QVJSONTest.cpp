// Our JSON writer: keys in their given order, the format's escapes, the depth limit and the
// refusal of what JSON can't say.
#include <gtest/gtest.h>

#include "QVJSON.h"

// Keys in their order and a property list's dictionary are QVQCTest's upload, byte for byte.
TEST(QVJSONTest, WritesCompactTextWithTheFormatsEscapes) {
    const QString awkward = QString("q\" b\\ \b\t\n\f\r") + QChar(1) + QChar(0x1f) + "é😀/";
    EXPECT_EQ(
        QVJSON::stringify(JsonValue(JsonValue::Array{true, JsonValue(), -3, JsonValue(awkward)}))
            .value_or("failed"),
        QByteArray(R"([true,null,-3,"q\" b\\ \b\t\n\f\r\u0001\u001fé😀/"])"));
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
