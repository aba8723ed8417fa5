// cardsweep: the desktop application.

#include <QApplication>
#include <QLabel>
#include <QMainWindow>
#include <cstdio>
#include <cstring>

#include "AppContext.h"
#include "Preferences.h"

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--version") == 0) {
            std::printf("cardsweep %s\n", CARDSWEEP_VERSION);
            return 0;
        }
    }
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Cardsweep"));
    AppContext context;
    Preferences(context.settings()).repairConcurrentThreads();

    QMainWindow window;
    window.setWindowTitle(QStringLiteral("Cardsweep"));
    QLabel placeholder(QStringLiteral("No cards mounted"));
    window.setCentralWidget(&placeholder);
    window.resize(640, 400);
    window.show();

    return QApplication::exec();
}
