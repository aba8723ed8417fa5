#include <gtest/gtest.h>

#include "QVFormat.h"

TEST(QVFormatTest, FormatsTheSystemsMessageTemplates) {
    EXPECT_EQ(QVFormat::format(u"%@ returned 0 bytes", QStringLiteral("/card/A001.mov")),
              QStringLiteral("/card/A001.mov returned 0 bytes"));
    EXPECT_EQ(QVFormat::format(u"%0.4i%@", 7, QStringLiteral(" Day 1")),
              QStringLiteral("0007 Day 1"));
    EXPECT_EQ(
        QVFormat::format(u"%@/%@.%li.log", QStringLiteral("/logs"), QStringLiteral("cardsweep"), 3),
        QStringLiteral("/logs/cardsweep.3.log"));
    EXPECT_EQ(QVFormat::format(u"System: %0.2f GB, %li CPU(s)", 23.456, 2),
              QStringLiteral("System: 23.46 GB, 2 CPU(s)"));
    EXPECT_EQ(QVFormat::format(u"%0.0f%%", 49.6), QStringLiteral("50%"));
    EXPECT_EQ(QVFormat::format(u"Exception in %s. %@ - %@.", "-[QVTaskEx launchAsyncTask]",
                               QStringLiteral("Name"), QStringLiteral("Reason")),
              QStringLiteral("Exception in -[QVTaskEx launchAsyncTask]. Name - Reason."));
    EXPECT_EQ(QVFormat::format(u"%-4s|%4s|%x", "ab", "cd", 255), QStringLiteral("ab  |  cd|ff"));
    EXPECT_EQ(QVFormat::format(u"é %@ ✓", QStringLiteral("ü")), QStringLiteral("é ü ✓"));
}

TEST(QVFormatTest, DirectivesWithoutArgumentsNeverReadGarbage) {
    // A text logged once more as a format: "% d" is a directive with no argument.
    EXPECT_EQ(QVFormat::format(u"50% done"), QStringLiteral("50 0one"));
    EXPECT_EQ(QVFormat::format(u"%@ and %li"), QStringLiteral("(null) and 0"));
    EXPECT_EQ(QVFormat::format(u"trailing %"), QStringLiteral("trailing %"));
    EXPECT_EQ(QVFormat::format(u"%y unknown"), QStringLiteral("%y unknown"));
}
