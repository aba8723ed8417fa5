// Test entry point: a QCoreApplication on the main thread (so work handed to the main
// thread has somewhere to go) and a private home for the whole run.

#include <gtest/gtest.h>

#include <QCoreApplication>

#include "DetachedThreads.h"
#include "LogPlaces.h"
#include "PosixProcessRunner.h"
#include "QVException.h"
#include "QVLog.h"
#include "QVTaskEx.h"
#include "SystemClock.h"
#include "TempHome.h"

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    const TempHome home;
    QCoreApplication app(argc, argv);
    QVException::installUncaughtExceptionHandler();
    PosixProcessRunner processes;
    QVTaskEx::install(&processes);  // as a program's setup does
    // So what the code under test logs has a file to go to.
    QVLog::createNewLog(LogPlaces::forCurrentUser(), SystemClock::shared());
    const int status = RUN_ALL_TESTS();
    DetachedThreads::joinAll();
    // The writer must be done before the statics it formats with are torn down.
    QVLog::sharedController().willTerminate();
    return status;
}
