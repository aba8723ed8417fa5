// How late the window's event loop answers while 200 volume updates a second (and a list
// reload every fourth) reach it: prints the updates sent and the worst late answer of a 10 ms
// timer. Runs on the offscreen platform unless QT_QPA_PLATFORM says otherwise, with a home of
// its own, so the user's settings and logs are never read or changed.
//
//   cardsweep-eventloopbench [UPDATES]        (400 unless given)

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "AppContext.h"
#include "AppController.h"
#include "Clock.h"
#include "LinuxDesktop.h"
#include "MainWindow.h"
#include "QVGrowl.h"
#include "QVVolume.h"

namespace {

void useHome(const QString& home) {
    const QByteArray path = QFile::encodeName(home);
    ::setenv("HOME", path.constData(), 1);
    for (const char* name :
         {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME", "XDG_STATE_HOME"})
        ::setenv(name, (path + '/' + name).constData(), 1);
    ::setenv("QT_QPA_PLATFORM",
             qgetenv("QT_QPA_PLATFORM").isEmpty() ? "offscreen" : qgetenv("QT_QPA_PLATFORM"), 1);
}

}  // namespace

int main(int argc, char** argv) {
    const QTemporaryDir home;
    if (!home.isValid()) {
        std::fprintf(stderr, "no temporary folder\n");
        return 1;
    }
    useHome(home.path());
    QApplication app(argc, argv);
    const int updates = argc > 1 ? std::max(1, std::atoi(argv[1])) : 400;
    AppContext context;
    MainWindow window(context.desktop());
    const std::unique_ptr<AppController> controller =
        context.makeController(window, context.growl());
    window.attach(*controller);
    window.show();

    std::vector<std::shared_ptr<QVVolume>> volumes;
    for (int i = 0; i < 8; ++i) {
        const QString name = QStringLiteral("C%1").arg(i, 3, 10, QChar('0'));
        volumes.push_back(QVVolume::volumeWithName(name, home.filePath(name), 0, context.settings(),
                                                   Clock::system()));
        volumes.back()->setStatus(QVVolume::Copying);
    }
    controller->setDataArray(volumes);
    controller->reloadVolumeList();

    int sent = 0;
    QTimer sender;
    sender.setTimerType(Qt::PreciseTimer);
    sender.setInterval(5);
    QObject::connect(&sender, &QTimer::timeout, [&] {
        const auto& volume = volumes[std::size_t(sent % 8)];
        volume->setProgressValue(double(sent % 100));
        window.volumesChanged({volume->snapshot()});
        if (sent % 4 == 0)
            window.reloadVolumeList();
        if (++sent >= updates)
            QCoreApplication::exit(0);  // leaves the loop without the quit sheet of busy cards
    });
    qint64 worstMs = 0;
    QElapsedTimer since;
    QTimer probe;
    probe.setTimerType(Qt::PreciseTimer);
    probe.setInterval(10);
    QObject::connect(&probe, &QTimer::timeout,
                     [&] { worstMs = std::max(worstMs, since.restart() - 10); });
    QElapsedTimer total;
    total.start();
    since.start();
    sender.start();
    probe.start();
    QApplication::exec();
    std::printf("event loop: %d updates in %.1f s; worst late answer %lld ms\n", sent,
                double(total.elapsed()) / 1000, static_cast<long long>(worstMs));
    for (const auto& volume : volumes)
        volume->setStatus(QVVolume::Idle);
    return 0;
}
