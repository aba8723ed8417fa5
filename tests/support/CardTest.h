#pragma once
// Base of the tests that use real cards: each test gets a media root of its own (where
// removable volumes are looked for) and is skipped, with the reason, where this machine
// can't make loop-mounted exFAT cards.

#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <memory>

#include "TempHome.h"
#include "TestMount.h"

class CardTest : public testing::Test {
  protected:
    void SetUp() override;

    /// A card mounted in the media root under folder (the label when empty); null, and a
    /// test failure, when it can't be made.
    std::unique_ptr<TestMount> mountCard(const QString& label, const QString& folder = QString());
    QString mediaPath(const QString& name) const { return media_.filePath(name); }
    /// A scratch folder outside the media root (destinations, settings).
    QString workPath(const QString& name) const { return work_.filePath(name); }

  private:
    TempHome home_;
    QTemporaryDir media_;
    QTemporaryDir work_;
};
