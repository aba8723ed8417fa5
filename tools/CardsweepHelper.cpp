// CardsweepHelper: the program of the background jobs. Run by the listener unit, it watches
// mounts and brings cardsweep up with each new card; "-setup" (the setup unit, once) prepares
// the user's folders and ends.
//
//   CardsweepHelper [--program PATH]   PATH instead of cardsweep beside this program
//   CardsweepHelper -setup
#include <fcntl.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDir>
#include <QSocketNotifier>
#include <csignal>
#include <cstdio>

#include "AppContext.h"
#include "CardLauncher.h"
#include "LocalPaths.h"
#include "MountService.h"
#include "ProcessRunner.h"
#include "QVLog.h"

namespace {

int stopPipe[2] = {-1, -1};

void onStop(int) {
    const char byte = 0;
    [[maybe_unused]] const ssize_t ignored = ::write(stopPipe[1], &byte, 1);
}

// The folders the desktop program and its log expect.
int setUp(AppContext& context) {
    const LocalPaths& paths = context.paths();
    for (const QString& folder : {paths.logDirectory(), paths.documentDirectory()}) {
        if (!folder.isEmpty())
            QDir().mkpath(folder);
    }
    QVLog::appendLog(u"CardsweepHelper: setup done");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("CardsweepHelper"));
    const QStringList arguments = QCoreApplication::arguments();
    AppContext context;
    if (arguments.contains(QStringLiteral("-setup")))
        return setUp(context);
    QString program = LocalPaths::helperProgram(QStringLiteral("cardsweep"));
    if (const qsizetype at = arguments.indexOf(QStringLiteral("--program"));
        at > 0 && at + 1 < arguments.size())
        program = arguments[at + 1];

    // systemd stops the service with SIGTERM: leave the event loop and shut down in order.
    if (::pipe2(stopPipe, O_CLOEXEC) != 0)
        return 1;
    QSocketNotifier stop(stopPipe[0], QSocketNotifier::Read);
    QObject::connect(&stop, &QSocketNotifier::activated, &app, &QCoreApplication::quit);
    std::signal(SIGTERM, onStop);
    std::signal(SIGINT, onStop);

    CardLauncher launcher(context.mounts(), context.files(), context.settings(),
                          context.processes(), program);
    launcher.start();
    QVLog::appendLog(u"CardsweepHelper: watching for cards, starting %@", program);
    std::printf("CardsweepHelper: watching for cards\n");
    std::fflush(stdout);
    const int status = QCoreApplication::exec();
    context.mounts().stopWatching();
    return status;
}
