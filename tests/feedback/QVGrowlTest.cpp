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

using namespace Qt::StringLiterals;

namespace {

struct Notice {
    QString name;
    QVariant context;
};

class QVGrowlTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!bus_.error().isEmpty()) {
            GTEST_SKIP() << bus_.error().toStdString();
        }
        ASSERT_TRUE(server_.registerOn(bus_.connect(u"server"_qs)));
        growl_ = std::make_unique<QVGrowl>(globalFile(), clock_, bus_.connect(u"client"_qs));
        QObject::connect(growl_.get(), &QVGrowl::notice,
                         [this](const QString& name, const QVariantMap& info) {
                             notices_.push_back({name, info.value(u"clickContext"_qs)});
                         });
    }

    QString globalFile() const { return dir_.filePath(u"com.quorvant.global.plist"_qs); }
    void setDisabled(bool disabled) {
        ASSERT_TRUE(PropertyList(PropertyList::Dictionary{{u"growlDisabled"_qs, disabled}})
                        .writeFile(globalFile()));
    }
    bool received(std::size_t count) {
        return waitUntil([&] { return server_.notifications().size() >= count; }, 5000);
    }

    const std::shared_ptr<FakeClock> clock_ = std::make_shared<FakeClock>();
    PrivateBus bus_;
    QTemporaryDir dir_;
    FakeNotificationServer server_;
    std::unique_ptr<QVGrowl> growl_;
    std::vector<Notice> notices_;
};

}  // namespace

TEST_F(QVGrowlTest, PostsFromAnyThreadAndTurnsClicksAndTimeOutsIntoNotices) {
    std::thread transfer([this] {
        growl_->postGrowlNotification(u"Transfer Complete"_qs, u"EOS_DIGITAL"_qs, {},
                                      u"Transfer Complete"_qs);
    });
    transfer.join();
    ASSERT_TRUE(received(1));
    const FakeNotificationServer::Notification& first = server_.notifications()[0];
    EXPECT_EQ(first.appName, QVGrowl::applicationNameForGrowl());
    EXPECT_FALSE(first.appName.isEmpty());
    EXPECT_EQ(first.icon, u"cardsweep"_qs);  // no icon given: the program's own
    EXPECT_EQ(first.summary, u"Transfer Complete"_qs);
    EXPECT_EQ(first.body, u"EOS_DIGITAL"_qs);
    EXPECT_TRUE(first.actions.contains(u"default"_qs));
    EXPECT_EQ(first.hints.value(u"x-cardsweep-kind"_qs).toString(), u"Transfer Complete"_qs);
    EXPECT_EQ(first.timeout, -1);

    growl_->postGrowlNotification(u"Note"_qs, u"text"_qs, u"dialog-warning"_qs, {});
    ASSERT_TRUE(received(2));
    EXPECT_EQ(server_.notifications()[1].icon, u"dialog-warning"_qs);
    EXPECT_EQ(server_.notifications()[1].hints.value(u"x-cardsweep-kind"_qs).toString(),
              u"QVInfoNotification"_qs);

    growl_->postGrowlNotification(u"No context"_qs, {}, {}, {}, QVariant());
    growl_->postGrowlNotification(u"Dismissed"_qs, {}, {}, {}, u"ctx"_qs);
    ASSERT_TRUE(received(4));
    // Let the replies (which carry the ids) arrive before the desktop's signals.
    waitUntil([] { return false; }, 200);

    server_.click(1);
    server_.close(2, 1);
    server_.click(3);
    server_.close(4, 2);
    server_.click(4);
    ASSERT_TRUE(waitUntil([&] { return notices_.size() >= 2; }, 5000));
    waitUntil([] { return false; }, 300);  // nothing more may come
    ASSERT_EQ(notices_.size(), 2);
    EXPECT_EQ(notices_[0].name, u"QVGrowlAlertClicked"_qs);
    EXPECT_EQ(notices_[0].context.toDateTime(), clock_->now()) << "dated by the clock given";
    EXPECT_EQ(notices_[1].name, u"QVGrowlAlertTimedOut"_qs);
    EXPECT_EQ(notices_[1].context.typeId(), QMetaType::QDateTime);
}

TEST_F(QVGrowlTest, TheGlobalSwitchIsReadOnEveryPost) {
    setDisabled(true);
    growl_->postGrowlNotification(u"Hidden"_qs, {}, {}, {});
    setDisabled(false);
    growl_->postGrowlNotification(u"Shown"_qs, {}, {}, {});
    ASSERT_TRUE(received(1));
    setDisabled(true);
    growl_->postGrowlNotification(u"Hidden again"_qs, {}, {}, {});
    ASSERT_TRUE(QFile::remove(globalFile()));
    growl_->postGrowlNotification(u"Shown again"_qs, {}, {}, {});
    ASSERT_TRUE(received(2));
    waitUntil([] { return false; }, 200);
    ASSERT_EQ(server_.notifications().size(), 2);
    EXPECT_EQ(server_.notifications()[0].summary, u"Shown"_qs);
    EXPECT_EQ(server_.notifications()[1].summary, u"Shown again"_qs);
}

TEST(QVGrowlNoBusTest, PostingWithoutASessionBusIsANoOp) {
    const QTemporaryDir dir;
    QVGrowl growl(dir.filePath(u"global.plist"_qs), std::make_shared<FakeClock>(),
                  QDBusConnection(QStringLiteral("cardsweep-no-bus")));
    growl.postGrowlNotification(u"Transfer Complete"_qs, u"CARD"_qs, {}, {});
    growl.postGrowlNotification(u"Transfer Complete"_qs, u"CARD"_qs, {}, {});
}
