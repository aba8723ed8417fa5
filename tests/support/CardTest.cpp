#include "CardTest.h"

#include <QFile>

void CardTest::SetUp() {
    const QString reason = LoopCard::unavailableReason();
    if (!reason.isEmpty())
        GTEST_SKIP() << "no loop-mounted cards: " << reason.toStdString();
    ASSERT_TRUE(media_.isValid() && work_.isValid());
    home_.setEnv("CARDSWEEP_MEDIA_ROOTS", QFile::encodeName(media_.path()));
}

std::unique_ptr<LoopCard> CardTest::mountCard(const QString& label, const QString& folder) {
    auto card = std::make_unique<LoopCard>(label, LoopCard::kDefaultSize,
                                           media_.filePath(folder.isEmpty() ? label : folder));
    EXPECT_TRUE(card->ok()) << card->error().toStdString();
    return card->ok() ? std::move(card) : nullptr;
}
