// cardsweep: the desktop application.

#include <QApplication>
#include <QLabel>
#include <QMainWindow>
#include <cstdio>
#include <cstring>

#include "DetachedThreads.h"
#include "Preferences.h"
#include "QVException.h"
#include "QVLog.h"
#include "SettingsStore.h"

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--version") == 0) {
            std::printf("cardsweep %s\n", CARDSWEEP_VERSION);
            return 0;
        }
    }
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Cardsweep"));
    QVException::installUncaughtExceptionHandler();
    QVLog::createNewLog();

    SettingsStore store(SettingsStore::defaultPath());
    Preferences preferences(store);
    preferences.registerAndMigrate();
    preferences.repairConcurrentThreads();

    QMainWindow window;
    window.setWindowTitle(QStringLiteral("Cardsweep"));
    QLabel placeholder(QStringLiteral("No cards mounted"));
    window.setCentralWidget(&placeholder);
    window.resize(640, 400);
    window.show();

    const int status = QApplication::exec();
    DetachedThreads::joinAll();
    QVLog::sharedController().willTerminate();
    return status;
}
