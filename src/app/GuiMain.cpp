// cardsweep: the desktop application.

#include <QApplication>
#include <QDesktopServices>
#include <QTimer>
#include <QUrl>
#include <QWindow>
#include <cstdio>
#include <cstring>

#include "AppContext.h"
#include "AppController.h"
#include "FileLayer.h"
#include "LinuxDesktop.h"
#include "ListTrace.h"
#include "LocalPaths.h"
#include "MainWindow.h"
#include "MountService.h"
#include "Preferences.h"
#include "QVGrowl.h"
#include "QVLocalPaths.h"
#include "QVLog.h"
#include "QVOSDetect.h"
#include "QVQC.h"
#include "QVTroubleshootingUtils.h"
#include "SettingsStore.h"
#include "SingleInstance.h"
#include "SystemClock.h"
#include "VerificationFailureWindow.h"

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--version") == 0) {
            std::printf("cardsweep %s\n", CARDSWEEP_VERSION);
            return 0;
        }
    }
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Cardsweep"));
    QApplication::setDesktopFileName(QStringLiteral("cardsweep"));
    // One window per user: a later start (the helper's, on a mount) hands its card over.
    SingleInstance instance(SingleInstance::defaultSocketPath());
    if (instance.handOff(QApplication::arguments())) {
        std::printf("cardsweep: handed over to the running instance\n");
        return 0;
    }
    if (!instance.listen() && instance.handOff(QApplication::arguments()))
        return 0;
    AppContext context;

    MainWindow window(context.desktop(), FileLayer::posix());
    // The request comes from a transfer's thread; the window is the main thread's.
    context.desktop().setAttentionHandler([&window] {
        QMetaObject::invokeMethod(&window, [&window] { QApplication::alert(&window); });
    });
    // A click on one of our notifications brings the window forward.
    QObject::connect(&context.growl(), &QVGrowl::notice, &window, [&window](const QString& name) {
        if (name != QVGrowl::kClicked)
            return;
        window.showNormal();
        window.raise();
        window.activateWindow();
    });
    const std::unique_ptr<AppController> controller =
        context.makeController(window, context.growl());
    window.attach(*controller);
    // CARDSWEEP_LIST_TRACE=FILE: what the list shows, line by line, for tests and support.
    std::unique_ptr<ListTrace> trace;
    if (const QString path = qEnvironmentVariable("CARDSWEEP_LIST_TRACE"); !path.isEmpty()) {
        trace = std::make_unique<ListTrace>(window.model(), path);
        QObject::connect(&window.failureReview(), &VerificationFailureWindow::reviewShown,
                         trace.get(), &ListTrace::recordReview);
    }
    QObject::connect(&instance, &SingleInstance::handedOver, &window,
                     [&window, &controller](const QStringList& arguments) {
                         QVLog::appendLog(u"Started again with: %@", arguments.join(u' '));
                         window.showNormal();
                         window.raise();
                         window.activateWindow();
                         QApplication::alert(&window);
                         controller->openVolumeFromArguments(arguments);
                     });
    window.show();
    controller->startUp(QApplication::arguments());
    controller->startWatchingMounts();

    // Support: gathering logs, the current log, and the last run's crash.
    const auto tell = [&window](const QString& title, const QString& text) {
        window.showSheet({title, QStringLiteral("OK"), {}, {}, text});
    };
    QObject::connect(&window, &MainWindow::gatherLogsRequested, &window,
                     [&context, tell] { context.gatherLogs(false, tell); });
    QObject::connect(&window, &MainWindow::viewLogRequested, &window, [&context, tell] {
        const QString log = QVTroubleshootingUtils::currentLog(context.troubleshootingPlaces(),
                                                               QStringLiteral("cardsweep"), tell);
        if (!log.isEmpty() && !context.desktop().openFiles({log}))
            tell(QStringLiteral("Unable to open the log"),
                 QStringLiteral("No program could open %1.").arg(log));
    });
    QString crashReport;
    context.startBugReporter([&crashReport](const QString& report) { crashReport = report; });
    const auto offerCrashReport = [&] {
        if (crashReport.isEmpty())
            return;
        const int answer = window.showSheet(
            {QStringLiteral("Application crashed on last launch"),
             QStringLiteral("Gather Logs"),
             QStringLiteral("Not Now"),
             {},
             QStringLiteral("Its report was saved as %1. Gather Logs puts it, with the logs, in "
                            "a zip on your desktop to send to support.")
                 .arg(crashReport)});
        if (answer == 1)
            context.gatherLogs(false, tell);
    };

    // Usage figures, only with consent: asked from the second launch on.
    QVQC analytics(
        context.settings(),
        {Preferences::qcFilePath(),
         context.paths().pathForDirectory(QVLocalPaths::Directory::Caches, true) +
             QStringLiteral("/Quorvant/QC/com.quorvant.Cardsweep"),
         QStringLiteral("com.quorvant.Cardsweep"), QStringLiteral(CARDSWEEP_VERSION)},
        SystemClock::shared(), [] { return QVOSDetect::osxVersion(); },
        [&window](const QString& title, const QStringList& buttons) {
            return window.showSheet(
                {title, buttons.value(0), buttons.value(1), buttons.value(2),
                 QStringLiteral("Cardsweep would send how often it is started and the system's "
                                "version, once a day, with a random identifier. Nothing about "
                                "your cards or files is collected.")});
        });
    analytics.setInfoPageOpener(
        [](const QString& address) { QDesktopServices::openUrl(QUrl(address)); });
    // The first sheets wait until the window is on the screen where the window manager put
    // it; asked earlier, a sheet has no window to centre on and lands in the screen's corner.
    QTimer placed;
    placed.setInterval(50);
    QObject::connect(&placed, &QTimer::timeout, &window, [&] {
        if (window.windowHandle() == nullptr || !window.windowHandle()->isExposed())
            return;
        placed.stop();
        offerCrashReport();
        analytics.loadQC();
    });
    placed.start();

    const int status = QApplication::exec();
    analytics.willTerminate();
    context.desktop().setAttentionHandler({});
    // Quitting was confirmed: nothing more starts and what runs stops before the controller goes.
    context.mounts().stopWatching();
    controller->dropWaitingVolumes();
    controller->stopRunningTransfers();
    context.finishWork();
    return status;
}
