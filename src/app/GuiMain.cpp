// cardsweep: the desktop application.

#include <QApplication>
#include <cstdio>
#include <cstring>

#include "AppContext.h"
#include "AppController.h"
#include "LinuxDesktop.h"
#include "ListTrace.h"
#include "MainWindow.h"
#include "MountService.h"
#include "QVGrowl.h"
#include "QVLog.h"
#include "SingleInstance.h"
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

    MainWindow window(context.desktop());
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

    const int status = QApplication::exec();
    context.desktop().setAttentionHandler({});
    // Quitting was confirmed: nothing more starts and what runs stops before the controller goes.
    context.mounts().stopWatching();
    controller->dropWaitingVolumes();
    controller->stopRunningTransfers();
    context.finishWork();
    return status;
}
