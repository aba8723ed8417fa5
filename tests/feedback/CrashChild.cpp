// A program that records its launch as ours do and then ends as asked: "abort", "segv" (the
// signal a bad pointer brings) or "clean" (its exit recorded).
//   crash_child RECORD_FILE CRASH_FOLDER abort|segv|clean
#include <QDateTime>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "CrashHandler.h"
#include "QVBugReporter.h"

int main(int argc, char** argv) {
    if (argc != 4)
        return 2;
    const QVBugReporter::Places places{
        QString::fromLocal8Bit(argv[1]), {QString::fromLocal8Bit(argv[2])}, QString(), "Cardsweep"};
    CrashHandler::install(places.crashFolders.front(), places.appName);
    QVBugReporter::startBugReporter(places, QDateTime::currentDateTime());
    if (std::strcmp(argv[3], "abort") == 0)
        std::abort();
    if (std::strcmp(argv[3], "segv") == 0)
        std::raise(SIGSEGV);
    QVBugReporter::stopBugReporter(places, QDateTime::currentDateTime());
    return 0;
}
