// Entry point of the window tests: a QApplication (the offscreen platform unless one is
// chosen) and a private home for the whole run.

#include <gtest/gtest.h>

#include <QApplication>

#include "DetachedThreads.h"
#include "LogPlaces.h"
#include "QVException.h"
#include "QVLog.h"
#include "SystemClock.h"
#include "TempHome.h"

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    const TempHome home;
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    QVException::installUncaughtExceptionHandler();
    QVLog::createNewLog(LogPlaces::forCurrentUser(), SystemClock::shared());
    const int status = RUN_ALL_TESTS();
    DetachedThreads::joinAll();
    QVLog::sharedController().willTerminate();
    return status;
}
