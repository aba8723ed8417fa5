#include "WatchRunner.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFileInfo>
#include <QSocketNotifier>
#include <QTimer>
#include <cstdio>
#include <map>

#include "AppController.h"
#include "DetachedThreads.h"
#include "MountMonitor.h"
#include "Preferences.h"
#include "QVLog.h"
#include "QVVolume.h"
#include "SettingsStore.h"
#include "TerminalAppView.h"
#include "VolumeEjector.h"

namespace {

int signalPipe[2] = {-1, -1};  // written by the signal handler, read on the main loop

void onSignal(int) {
    const char byte = 1;
    const ssize_t written = ::write(signalPipe[1], &byte, 1);
    static_cast<void>(written);
}

void installSignalPipe() {
    if (::pipe2(signalPipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    struct sigaction action {};
    action.sa_handler = onSignal;
    ::sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

void say(const QString& line) {
    std::printf("%s\n", line.toUtf8().constData());
    std::fflush(stdout);
}

void applyOverrides(SettingsStore& settings, const WatchRunner::Request& request) {
    settings.setOverride(QStringLiteral("cardsweepEnabled"), PropertyList(qint64(1)));
    if (request.image)
        settings.setOverride(SettingsKey::transferType, PropertyList(qint64(1)));
    if (request.destinations.isEmpty())
        return;
    PropertyList::Array entries;
    for (const QString& destination : request.destinations)
        entries.push_back(
            DestinationEntry{1, QFileInfo(destination).absoluteFilePath()}.toPropertyList());
    settings.setOverride(SettingsKey::destinationList, PropertyList(entries));
}

}  // namespace

int WatchRunner::run(SettingsStore& settings, const Request& request) {
    applyOverrides(settings, request);
    installSignalPipe();
    TerminalAppView view;
    AppController controller(settings, view, view);
    controller.populateVolumes();
    for (const auto& volume : controller.dataArray())
        say(QStringLiteral("Listed: %1 (%2) at %3")
                .arg(volume->name(), volume->typeName(), volume->path()));
    say(QStringLiteral("Watching for cards; Ctrl-C to stop."));

    // Every volume that started a transfer, until its verdict is printed.
    std::map<QVVolume*, std::shared_ptr<QVVolume>> running;
    bool anyFailed = false;
    const auto report = [&] {
        for (const auto& volume : controller.dataArray()) {
            if (volume->status() >= QVVolume::Copying)
                running.emplace(volume.get(), volume);
        }
        for (auto it = running.begin(); it != running.end();) {
            QVVolume& v = *it->second;
            const qint64 status = v.status();
            const bool ended = status == QVVolume::Done || status == QVVolume::Failed ||
                               status == QVVolume::Cancelled;
            if (!ended) {
                ++it;
                continue;
            }
            if (status == QVVolume::Done) {
                say(QStringLiteral("%1: verified -> %2")
                        .arg(v.name(), v.destinations().join(u", ")));
                if (request.eject) {
                    QString error;
                    say(VolumeEjector::unmountAndEject(v.path(), &error)
                            ? QStringLiteral("%1: ejected").arg(v.name())
                            : QStringLiteral("%1: could not be ejected: %2").arg(v.name(), error));
                }
            } else {
                anyFailed = true;
                say(QStringLiteral("%1: %2").arg(
                    v.name(), status == QVVolume::Failed
                                  ? QStringLiteral("FAILED: ") + v.errorString().value_or("")
                                  : v.errorString().value_or(QStringLiteral("stopped"))));
            }
            it = running.erase(it);
        }
    };

    MountMonitor monitor;
    QObject::connect(&monitor, &MountMonitor::volumeDidMount, [&](const MountEntry& entry) {
        controller.volumeDidMount(entry.mountPoint);
        say(QStringLiteral("Mounted: %1").arg(entry.mountPoint));
    });
    QObject::connect(&monitor, &MountMonitor::volumeDidUnmount, [&](const MountEntry& entry) {
        controller.volumeDidUnmount(entry.mountPoint);
    });
    monitor.start();

    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, report);
    poll.start(250);
    QSocketNotifier signalNotifier(signalPipe[0], QSocketNotifier::Read);
    QObject::connect(&signalNotifier, &QSocketNotifier::activated,
                     [] { QCoreApplication::exit(0); });
    QCoreApplication::exec();

    // Stop what is still running, and say so.
    monitor.stop();
    for (const auto& [raw, volume] : running) {
        if (volume->status() == QVVolume::Done || volume->status() == QVVolume::Failed)
            continue;
        volume->setErrorString(QStringLiteral("stopped before it was verified"));
        volume->setStatus(QVVolume::Cancelled);
        controller.cancelVolume(*volume);
    }
    const QDeadlineTimer deadline(60000);
    while (DetachedThreads::unfinished() > 0 && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    DetachedThreads::joinAll();
    report();
    QVLog::appendLog(u"Watch stopped");
    return anyFailed ? 1 : 0;
}
