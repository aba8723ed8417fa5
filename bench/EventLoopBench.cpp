// How late the window's event loop answers while volume updates reach it 200 times a second
// (and the list reloads on every fourth), as eight cards copying at once would cause. Runs in
// a temporary home, on the offscreen platform unless QT_QPA_PLATFORM names another.
//
//   cardsweep-eventloopbench [SECONDS]

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "AppContext.h"
#include "AppController.h"
#include "LinuxDesktop.h"
#include "MainWindow.h"
#include "QVGrowl.h"
#include "QVVolume.h"
#include "SystemClock.h"

namespace {

// A card of one clip under root, listed as idle.
std::shared_ptr<QVVolume> card(const QString& root, const QString& name, SettingsStore& settings) {
    QDir().mkpath(root + "/" + name + "/CONTENTS/CLIP");
    QFile clip(root + "/" + name + "/CONTENTS/CLIP/" + name + "C001.MXF");
    if (clip.open(QIODevice::WriteOnly))
        clip.write(QByteArray(1 << 20, 'c'));
    return QVVolume::volumeWithName(name, root + "/" + name, 0, settings, SystemClock::shared());
}

}  // namespace

int main(int argc, char** argv) {
    const QTemporaryDir home;
    for (const char* name :
         {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_STATE_HOME", "XDG_CACHE_HOME"})
        qputenv(name, QFile::encodeName(home.filePath(name)));
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const int seconds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 2;

    AppContext context;
    MainWindow window(context.desktop(), context.files());
    const std::unique_ptr<AppController> controller =
        context.makeController(window, context.growl());
    window.attach(*controller);
    window.show();
    std::vector<std::shared_ptr<QVVolume>> volumes;
    for (int i = 0; i < 8; ++i)
        volumes.push_back(card(home.filePath("cards"), QString("C%1").arg(i, 3, 10, QChar('0')),
                               context.settings()));
    controller->setDataArray(volumes);
    controller->reloadVolumeList();
    for (const auto& volume : volumes)
        volume->setStatus(QVVolume::Copying);

    int sent = 0;
    QTimer updates;
    updates.setTimerType(Qt::PreciseTimer);
    QObject::connect(&updates, &QTimer::timeout, [&] {
        const auto& volume = volumes[std::size_t(sent % 8)];
        volume->setProgressValue(double(sent % 100));
        window.volumesChanged({volume->snapshot()});
        if (sent % 4 == 0)
            window.reloadVolumeList();
        ++sent;
    });
    qint64 worstMs = 0;
    QElapsedTimer since;
    QTimer probe;
    probe.setTimerType(Qt::PreciseTimer);
    QObject::connect(&probe, &QTimer::timeout,
                     [&] { worstMs = std::max(worstMs, since.restart() - 10); });
    since.start();
    updates.start(5);
    probe.start(10);
    // Idle again before quitting: closing the window asks while a volume copies.
    QTimer::singleShot(seconds * 1000, &app, [&] {
        updates.stop();
        probe.stop();
        for (const auto& volume : volumes)
            volume->setStatus(QVVolume::Idle);
        QCoreApplication::quit();
    });
    QApplication::exec();
    std::printf("event loop: %d updates in %d s; worst late answer %lld ms\n", sent, seconds,
                static_cast<long long>(worstMs));
    std::fflush(stdout);
    controller->stopRunningTransfers();
    context.finishWork();
    return 0;
}
