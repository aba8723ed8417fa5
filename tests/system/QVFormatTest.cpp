// The log's "%@" / "%li" formatter, and that a directive without its argument reads nothing.

#include <gtest/gtest.h>

#include "QVFormat.h"

TEST(QVFormatTest, DirectivesTakeTheirArgumentsAndNeverReadGarbage) {
    EXPECT_EQ(QVFormat::format(u"%@/%@.%li.log", "/logs", "cardsweep", 3), "/logs/cardsweep.3.log");
    EXPECT_EQ(QVFormat::format(u"%@ and %li"), "(null) and 0");
    EXPECT_EQ(QVFormat::format(u"trailing %"), "trailing %");
    EXPECT_EQ(QVFormat::format(u"%y unknown"), "%y unknown");
}
