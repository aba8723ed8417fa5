// The background helper as the listener unit runs it: a real loop card mounted while it
// watches brings the desktop program (here a stand-in recording its arguments) up with
// "-cardsweepVolume" and that card.
#include <gtest/gtest.h>

#include <QDeadlineTimer>
#include <QFile>
#include <QProcess>
#include <QThread>

#include "CardTest.h"
#include "TestFiles.h"

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
    const QDeadlineTimer ready(30000);
    while (!helper.readAll().contains("watching for cards") && !ready.hasExpired())
        helper.waitForReadyRead(200);
    ASSERT_FALSE(ready.hasExpired()) << "the helper never said it was watching";

    ASSERT_TRUE(card->remount());
    const QDeadlineTimer started(30000);
    while (!QFile::exists(recorded) && !started.hasExpired())
        QThread::msleep(100);
    helper.terminate();
    EXPECT_TRUE(helper.waitForFinished(10000));
    EXPECT_EQ(helper.exitStatus(), QProcess::NormalExit) << "SIGTERM ends it in order";
    EXPECT_EQ(QString::fromUtf8(TestFiles::read(recorded)),
              "-cardsweepVolume\n" + card->mountPoint() + "\n");
}
