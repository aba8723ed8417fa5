// The view hears of busy volumes as snapshots, coalesced and spaced out on the main thread, so a
// card copying at full speed can't flood the event loop, and never reads a changing record.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <optional>
#include <thread>

#include "QVVolume.h"
#include "SystemClock.h"
#include "VolumeUpdates.h"

namespace {

void serveEvents() {
    for (int i = 0; i < 20; ++i)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
}

// The steady clock as this machine reads it (none), or one that reads as if the machine had
// been up for so long: a minute (a fresh CI machine) or weeks.
using Uptime = std::optional<std::chrono::seconds>;

}  // namespace

class VolumeUpdatesAt : public testing::TestWithParam<Uptime> {};

TEST_P(VolumeUpdatesAt, ManyChangesFromWorkersArriveAsFewSnapshotsOfTheLatestState) {
    std::chrono::steady_clock::time_point now(GetParam().value_or(std::chrono::seconds(0)));
    VolumeUpdates::SteadyNow clock = &std::chrono::steady_clock::now;
    if (GetParam())
        clock = [&] { return now; };
    std::vector<VolumeUpdates::Snapshots> deliveries;
    VolumeUpdates updates([&](const VolumeUpdates::Snapshots& s) { deliveries.push_back(s); },
                          std::chrono::hours(1), clock);
    const auto a = std::make_shared<QVVolume>(SystemClock::shared());
    const auto b = std::make_shared<QVVolume>(SystemClock::shared());
    a->setName("A");
    b->setName("B");

    // The first change goes out at once; everything after waits for the interval.
    std::thread worker([&] {
        for (int i = 1; i <= 5000; ++i) {
            a->setProgressValue(i);
            updates.changed(a);
            updates.changed(b);
        }
    });
    worker.join();
    serveEvents();
    ASSERT_EQ(deliveries.size(), 1u) << "one delivery however many changes came first";
    EXPECT_LE(deliveries[0].size(), 2u) << "each volume once";

    a->setStatus(QVVolume::Verifying);
    updates.changed(a);
    serveEvents();
    EXPECT_EQ(deliveries.size(), 1u) << "held back until the interval has passed";

    updates.flush();
    ASSERT_EQ(deliveries.size(), 2u);
    ASSERT_EQ(deliveries[1].size(), 1u);
    const VolumeSnapshot& latest = *deliveries[1][0];
    EXPECT_EQ(latest.name, "A");
    EXPECT_EQ(latest.status, VolumeStatus::Verifying);
    EXPECT_EQ(latest.statusText, "Verifying...");
    EXPECT_EQ(latest.progress, 5000);
    EXPECT_TRUE(latest.isBusy());

    // A snapshot stays as it was taken.
    a->setProgressValue(1);
    EXPECT_EQ(latest.progress, 5000);

    if (!GetParam())
        return;
    now += std::chrono::hours(1);
    updates.changed(b);
    serveEvents();
    EXPECT_EQ(deliveries.size(), 3u) << "once the interval has passed, a change goes out at once";
}

INSTANTIATE_TEST_SUITE_P(VolumeUpdates, VolumeUpdatesAt,
                         testing::Values(Uptime(), Uptime(std::chrono::seconds(60)),
                                         Uptime(std::chrono::hours(24 * 40))));

TEST(VolumeUpdates, AVolumeGoneBeforeDeliveryIsLeftOutAndNothingComesAfterTheEnd) {
    std::vector<VolumeUpdates::Snapshots> deliveries;
    auto updates = std::make_unique<VolumeUpdates>(
        [&](const VolumeUpdates::Snapshots& s) { deliveries.push_back(s); },
        std::chrono::milliseconds(0));
    auto gone = std::make_shared<QVVolume>(SystemClock::shared());
    updates->changed(gone);
    gone.reset();
    serveEvents();
    EXPECT_TRUE(deliveries.empty());

    updates->changed(std::make_shared<QVVolume>(SystemClock::shared()));
    updates.reset();  // the controller went before the main thread came round
    serveEvents();
    EXPECT_TRUE(deliveries.empty());
}
