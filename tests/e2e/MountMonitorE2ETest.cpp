// Mount notifications and the removable-media list against real cards on loop devices.

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <algorithm>
#include <memory>

#include "CardTest.h"
#include "MountMonitor.h"
#include "RemovableMedia.h"
#include "TestMount.h"
#include "WaitUntil.h"

namespace {

class MountMonitorE2ETest : public CardTest {};

// How many of the entries are mounted at mountPoint from device.
long countOf(const std::vector<MountEntry>& entries, const QString& mountPoint,
             const QString& device) {
    return std::count_if(entries.begin(), entries.end(), [&](const MountEntry& e) {
        return e.mountPoint == mountPoint && e.source == device;
    });
}

}  // namespace

// Other cards may come and go on this machine meanwhile, so only our own are looked at.
TEST_F(MountMonitorE2ETest, ReportsCardsGoingInAndOut) {
    for (const auto mode : {MountMonitor::Mode::Kernel, MountMonitor::Mode::Polling}) {
        SCOPED_TRACE(mode == MountMonitor::Mode::Kernel ? "kernel monitor" : "polling");
        // Already in when watching starts: part of the first snapshot, never reported.
        const auto early = mountCard(QStringLiteral("EARLY"), QStringLiteral("EARLY"));
        ASSERT_TRUE(early);
        MountMonitor(nullptr, mode).start();  // one started and dropped at once is harmless
        MountMonitor monitor(nullptr, mode);
        std::vector<MountEntry> in;
        std::vector<MountEntry> out;
        QObject::connect(&monitor, &MountMonitor::volumeDidMount,
                         [&](const MountEntry& e) { in.push_back(e); });
        QObject::connect(&monitor, &MountMonitor::volumeDidUnmount,
                         [&](const MountEntry& e) { out.push_back(e); });
        monitor.start();
        // Where the kernel monitor works, it must be what is used.
        EXPECT_EQ(monitor.isPolling(), mode == MountMonitor::Mode::Polling);

        const auto card = mountCard(QStringLiteral("A001"), QStringLiteral("A001 \t'$(x)'"));
        ASSERT_TRUE(card);
        const QString at = card->mountPoint();
        const QString device = card->device();
        ASSERT_TRUE(waitUntil([&] { return countOf(in, at, device) > 0; }));
        EXPECT_EQ(countOf(in, at, device), 1);
        EXPECT_EQ(countOf(in, early->mountPoint(), early->device()), 0);
        EXPECT_EQ(countOf(RemovableMedia::mounted(), at, device), 1) << "and listed as a card";

        ASSERT_TRUE(card->unmount());
        ASSERT_TRUE(waitUntil([&] { return countOf(out, at, device) > 0; }));
        EXPECT_EQ(countOf(out, at, device), 1);
        EXPECT_EQ(countOf(in, at, device), 1);

        // Stopped, it says nothing more, whatever happens to the cards.
        monitor.stop();
        ASSERT_TRUE(card->remount()) << card->error().toStdString();
        ASSERT_TRUE(early->unmount());
        QCoreApplication::processEvents();
        EXPECT_EQ(countOf(in, at, device), 1);
        EXPECT_EQ(countOf(out, early->mountPoint(), early->device()), 0);
    }
}
