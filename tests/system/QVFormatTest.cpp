// The log's "%@" / "%li" formatter, and that a directive without its argument reads nothing.

#include <gtest/gtest.h>

#include "QVFormat.h"

TEST(QVFormatTest, DirectivesTakeTheirArgumentsAndNeverReadGarbage) {
    EXPECT_EQ(
        QVFormat::format(u"%@/%@.%li.log", QStringLiteral("/logs"), QStringLiteral("cardsweep"), 3),
        QStringLiteral("/logs/cardsweep.3.log"));
    EXPECT_EQ(QVFormat::format(u"%@ and %li"), QStringLiteral("(null) and 0"));
    EXPECT_EQ(QVFormat::format(u"trailing %"), QStringLiteral("trailing %"));
    EXPECT_EQ(QVFormat::format(u"%y unknown"), QStringLiteral("%y unknown"));
}
