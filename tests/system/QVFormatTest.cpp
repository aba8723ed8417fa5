#include <gtest/gtest.h>

#include "QVFormat.h"

TEST(QVFormatTest, ObjectsAndLongsFillTheirDirectives) {
    EXPECT_EQ(QVFormat::format(u"%@ returned 0 bytes", QStringLiteral("/card/A001.mov")),
              QStringLiteral("/card/A001.mov returned 0 bytes"));
    EXPECT_EQ(
        QVFormat::format(u"%@/%@.%li.log", QStringLiteral("/logs"), QStringLiteral("cardsweep"), 3),
        QStringLiteral("/logs/cardsweep.3.log"));
}

TEST(QVFormatTest, DirectivesWithoutArgumentsNeverReadGarbage) {
    EXPECT_EQ(QVFormat::format(u"%@ and %li"), QStringLiteral("(null) and 0"));
    EXPECT_EQ(QVFormat::format(u"trailing %"), QStringLiteral("trailing %"));
    EXPECT_EQ(QVFormat::format(u"%y unknown"), QStringLiteral("%y unknown"));
}
