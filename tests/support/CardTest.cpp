#include "CardTest.h"

#include <QFile>

void CardTest::SetUp() {
    const QString reason = TestMount::unavailableReason(TestMount::Kind::Exfat);
    if (!reason.isEmpty())
        GTEST_SKIP() << "no loop-mounted cards: " << reason.toStdString();
    ASSERT_TRUE(media_.isValid() && work_.isValid());
    home_.setEnv("CARDSWEEP_MEDIA_ROOTS", QFile::encodeName(media_.path()));
}

std::unique_ptr<TestMount> CardTest::mountCard(const QString& label, const QString& folder) {
    TestMount::Options options;
    options.label = label;
    auto card =
        std::make_unique<TestMount>(media_.filePath(folder.isEmpty() ? label : folder), options);
    EXPECT_TRUE(card->ok()) << card->error().toStdString();
    return card->ok() ? std::move(card) : nullptr;
}
