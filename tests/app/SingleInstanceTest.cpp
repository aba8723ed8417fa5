// One desktop program per user: a later start's arguments reach the running one word for
// word; a socket left by a dead instance is taken over; with nobody listening nothing is
// handed off.
#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>
#include <thread>

#include "SingleInstance.h"
#include "WaitUntil.h"

TEST(SingleInstanceTest, ALaterStartHandsItsArgumentsToTheRunningOne) {
    QTemporaryDir work;
    const QString socket = work.filePath("cardsweep.socket");
    SingleInstance first(socket);
    EXPECT_FALSE(first.handOff({"cardsweep"}, 500)) << "nobody to hand to";
    ASSERT_TRUE(first.listen());
    QStringList heard;
    QObject::connect(&first, &SingleInstance::handedOver,
                     [&](const QStringList& arguments) { heard = arguments; });

    // The later start waits for its answer, so it runs beside the first one's event loop.
    const QStringList arguments{"cardsweep", "-cardsweepVolume",
                                "/media/ann/A \"card\"\n$(reboot) -rf"};
    bool taken = false;
    std::thread later([&] { taken = SingleInstance(socket).handOff(arguments); });
    EXPECT_TRUE(waitUntil([&] { return !heard.isEmpty(); }));
    later.join();
    EXPECT_TRUE(taken);
    EXPECT_EQ(heard, arguments);
    EXPECT_FALSE(SingleInstance(socket).listen()) << "the first one still answers";
}

TEST(SingleInstanceTest, ASocketLeftByADeadInstanceIsTakenOver) {
    QTemporaryDir work;
    const QString socket = work.filePath("cardsweep.socket");
    // What a crash leaves: a file where the socket was, nobody behind it.
    QFile stale(socket);
    ASSERT_TRUE(stale.open(QIODevice::WriteOnly));
    stale.close();
    SingleInstance next(socket);
    EXPECT_FALSE(next.handOff({"cardsweep"}, 500));
    EXPECT_TRUE(next.listen());
}
