// Notifications reach the desktop's notification service with the program's name, icon and
// kind; clicks and time-outs come back as notices with their context; the global switch is
// read on every post.
#include <gtest/gtest.h>

#include <QDateTime>
#include <QTemporaryDir>
#include <thread>

#include "FakeClock.h"
#include "FakeNotificationServer.h"
#include "PrivateBus.h"
#include "PropertyList.h"
#include "QVGrowl.h"
#include "QtPrinters.h"
#include "WaitUntil.h"

namespace {

class QVGrowlTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!bus_.error().isEmpty())
            GTEST_SKIP() << bus_.error().toStdString();
        ASSERT_TRUE(server_.registerOn(bus_.connect("server")));
        growl_ = std::make_unique<QVGrowl>(globalFile(), clock_, bus_.connect("client"));
        QObject::connect(growl_.get(), &QVGrowl::notice,
                         [this](const QString& name, const QVariantMap& info) {
                             notices_.emplace_back(name, info.value("clickContext"));
                         });
    }
    QString globalFile() const { return dir_.filePath("com.quorvant.global.plist"); }
    void post(const QString& title) { growl_->postGrowlNotification(title, {}, {}, {}); }
    bool received(std::size_t count) {
        const bool arrived =
            waitUntil([&] { return server_.notifications().size() >= count; }, 5000);
        waitUntil([] { return false; }, 200);  // replies settle; nothing more may come
        return arrived && server_.notifications().size() == count;
    }

    const std::shared_ptr<FakeClock> clock_ = std::make_shared<FakeClock>();
    PrivateBus bus_;
    QTemporaryDir dir_;
    FakeNotificationServer server_;
    std::unique_ptr<QVGrowl> growl_;
    std::vector<std::pair<QString, QVariant>> notices_;
};

}  // namespace

TEST_F(QVGrowlTest, PostsFromAnyThreadAndTurnsClicksAndTimeOutsIntoNotices) {
    std::thread([this] {
        growl_->postGrowlNotification("Transfer Complete", "EOS_DIGITAL", {}, "Transfer Complete");
    }).join();
    growl_->postGrowlNotification("Note", "text", "dialog-warning", {});
    growl_->postGrowlNotification("No context", {}, {}, {}, QVariant());
    growl_->postGrowlNotification("Dismissed", {}, {}, {}, "ctx");
    ASSERT_TRUE(received(4));
    const auto& first = server_.notifications()[0];
    EXPECT_EQ(first.appName, QVGrowl::applicationNameForGrowl());
    EXPECT_EQ(first.icon, "cardsweep");  // no icon given: the program's own
    EXPECT_EQ(first.summary + "|" + first.body, "Transfer Complete|EOS_DIGITAL");
    EXPECT_TRUE(first.actions.contains("default"));
    EXPECT_EQ(first.hints.value("x-cardsweep-kind").toString(), "Transfer Complete");
    EXPECT_EQ(first.timeout, -1);
    const auto& second = server_.notifications()[1];
    EXPECT_EQ(second.icon + "|" + second.hints.value("x-cardsweep-kind").toString(),
              "dialog-warning|QVInfoNotification");

    // Clicked and timed out tell; no context, a dismissal, or a click after it do not.
    server_.click(1);
    server_.close(2, 1);
    server_.click(3);
    server_.close(4, 2);
    server_.click(4);
    ASSERT_TRUE(waitUntil([&] { return notices_.size() >= 2; }, 5000));
    waitUntil([] { return false; }, 300);
    ASSERT_EQ(notices_.size(), 2u);
    EXPECT_EQ(notices_[0].first, "QVGrowlAlertClicked");
    EXPECT_EQ(notices_[0].second.toDateTime(), clock_->now()) << "dated by the clock given";
    EXPECT_EQ(notices_[1].first, "QVGrowlAlertTimedOut");
    EXPECT_EQ(notices_[1].second.typeId(), QMetaType::QDateTime);
}

TEST_F(QVGrowlTest, TheGlobalSwitchIsReadOnEveryPost) {
    const auto disable = [&](bool off) {
        ASSERT_TRUE(
            PropertyList(PropertyList::Dictionary{{"growlDisabled", off}}).writeFile(globalFile()));
    };
    disable(true);
    post("Hidden");
    disable(false);
    post("Shown");
    disable(true);
    post("Hidden again");
    ASSERT_TRUE(QFile::remove(globalFile()));
    post("Shown again");
    ASSERT_TRUE(received(2));
    EXPECT_EQ(server_.notifications()[0].summary, "Shown");
    EXPECT_EQ(server_.notifications()[1].summary, "Shown again");
}
