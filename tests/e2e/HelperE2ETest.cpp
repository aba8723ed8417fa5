// The background helper as the listener unit runs it: a real loop card mounted while it
// watches brings the desktop program (here a stand-in recording its arguments) up with
// "-cardsweepVolume" and that card.
#include <gtest/gtest.h>

#include <QFile>
#include <QProcess>

#include "CardTest.h"
#include "TestFiles.h"
#include "WaitUntil.h"

class HelperE2E : public CardTest {};

TEST_F(HelperE2E, AMountedCardStartsTheDesktopProgramWithIt) {
    const auto card = mountCard("EOS_DIGITAL");
    ASSERT_TRUE(card);
    TestFiles::write(card->mountPoint() + "/DCIM/100EOS5D/MVI_0001.MOV", "clip");
    ASSERT_TRUE(card->unmount());

    const QString recorded = workPath("arguments");
    const QString standIn = workPath("cardsweep");
    TestFiles::write(standIn, "#!/bin/sh\nprintf '%s\\n' \"$@\" > '" + recorded.toUtf8() + "'\n");
    QFile::setPermissions(standIn, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);

    QProcess helper;
    helper.setProcessChannelMode(QProcess::MergedChannels);
    helper.start(CARDSWEEP_HELPER_PATH, {"--program", standIn});
    ASSERT_TRUE(helper.waitForStarted());
    QByteArray said;
    ASSERT_TRUE(
        waitUntil([&] { return (said += helper.readAll()).contains("watching for cards"); }, 30000))
        << "the helper never said it was watching";

    ASSERT_TRUE(card->remount());
    EXPECT_TRUE(waitUntil([&] { return QFile::exists(recorded); }, 30000));
    helper.terminate();
    EXPECT_TRUE(helper.waitForFinished(10000));
    EXPECT_EQ(helper.exitStatus(), QProcess::NormalExit) << "SIGTERM ends it in order";
    EXPECT_EQ(QString::fromUtf8(TestFiles::read(recorded)),
              "-cardsweepVolume\n" + card->mountPoint() + "\n");
}
