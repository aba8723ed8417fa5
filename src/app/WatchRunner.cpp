#include "WatchRunner.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QFileInfo>
#include <QSocketNotifier>
#include <cstdio>

#include "AppContext.h"
#include "AppController.h"
#include "MountService.h"
#include "Preferences.h"
#include "QVGrowl.h"
#include "QVLog.h"
#include "QVVolume.h"
#include "SettingsStore.h"
#include "TerminalAppView.h"
#include "TransferRequest.h"
#include "TransferSummary.h"
#include "WorkerThreads.h"

namespace {

int signalPipe[2] = {-1, -1};  // written by the signal handler, read on the main loop

void onSignal(int) {
    const char byte = 1;
    const ssize_t written = ::write(signalPipe[1], &byte, 1);
    static_cast<void>(written);
}

void setSignalHandler(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    ::sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

void installSignalPipe() {
    if (::pipe2(signalPipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    setSignalHandler(onSignal);
}

void say(const QString& line) {
    std::printf("%s\n", line.toUtf8().constData());
    std::fflush(stdout);
}

void applyOverrides(SettingsStore& settings, const WatchRunner::Request& request) {
    // Imaging a whole card is asked for on the command line, never inherited from the desktop.
    settings.setOverride(SettingsKey::transferType, PropertyList(qint64(request.image ? 1 : 0)));
    if (request.destinations.isEmpty())
        return;
    PropertyList::Array entries;
    for (const QString& destination : request.destinations)
        entries.push_back(
            DestinationEntry{1, QFileInfo(destination).absoluteFilePath()}.toPropertyList());
    settings.setOverride(SettingsKey::destinationList, PropertyList(entries));
}

std::shared_ptr<QVVolume> listedAt(const AppController& controller, const QString& path) {
    for (const auto& volume : controller.dataArray()) {
        if (volume->path() == path)
            return volume;
    }
    return nullptr;
}

QString describe(const QVVolume& volume) {
    return QStringLiteral("%1 (%2) at %3").arg(volume.name(), volume.typeName(), volume.path());
}

// Prints the verdict of an ended transfer; true when it verified.
bool reportVerdict(QVVolume& volume, const SettingsStore& settings) {
    const bool fromMedium = !settings.isOn(SettingsKey::inlineVerification);
    const bool imagesChecked = settings.isOn(SettingsKey::verifyFileChecksums);
    const VolumeStatus status = volume.status();
    if (status != QVVolume::Done) {
        say(QStringLiteral("%1: %2").arg(
            volume.name(), status == QVVolume::Failed
                               ? TransferSummary::verdict(volume, fromMedium, imagesChecked)
                               : volume.errorString().value_or(QStringLiteral("stopped"))));
        for (const QString& line : TransferSummary::lines(volume, fromMedium)) {
            if (!line.startsWith(QLatin1String("Destination: ")) && !line.startsWith(u' '))
                say(QStringLiteral("%1: %2").arg(volume.name(), line));
        }
        return false;
    }
    say(QStringLiteral("%1: %2 -> %3")
            .arg(volume.name(), TransferSummary::verdict(volume, fromMedium, imagesChecked),
                 volume.destinations().join(u", ")));
    return true;
}

// After a stop request: nothing more starts, running copies are cancelled, and every card
// that will not be verified is named. True when anything was stopped.
bool stopTransfers(AppController& controller) {
    const auto waiting = controller.dropWaitingVolumes();
    for (const auto& volume : waiting)
        say(QStringLiteral("%1: not transferred (stopped while waiting)").arg(volume->name()));
    const bool running = controller.stopRunningTransfers();
    return running || !waiting.empty();
}

}  // namespace

int WatchRunner::run(AppContext& app, const Request& request) {
    SettingsStore& settings = app.settings();
    if (const auto problem = TransferRequest::destinationsProblem(request.destinations)) {
        std::fprintf(stderr, "cardsweep-cli: %s\n", problem->line.toUtf8().constData());
        return 2;
    }
    applyOverrides(settings, request);
    installSignalPipe();
    TerminalAppView view;
    view.setDesktopNotifier(&app.growl());
    const Services services = app.services(view);
    AppController controller(settings, view, services);
    controller.keepAutomaticModeOn();  // watching is the automatic mode, jobs or not
    MountService& mounts = app.mounts();
    QObject context;
    bool anyFailed = false;
    // The verdict comes from the worker that ended the transfer, after its marker and manifest
    // are written; it is printed (and the card ejected) on the main loop.
    view.setTransferEndedHandler([&](const std::shared_ptr<QVVolume>& volume) {
        QMetaObject::invokeMethod(
            &context, [&, volume] { anyFailed |= !reportVerdict(*volume, settings); },
            Qt::QueuedConnection);
    });

    // Watching starts first so that a card mounted while the list is built is not missed.
    mounts.startWatching([&](const MountEntry& entry, bool mounted) {
        if (!mounted) {
            controller.volumeDidUnmount(entry.mountPoint);
            return;
        }
        // Mount events report every local mount; only what could be a card is of interest.
        if (!mounts.isRemovable(entry) || listedAt(controller, entry.mountPoint))
            return;
        controller.volumeDidMount(entry.mountPoint);
        const auto volume = listedAt(controller, entry.mountPoint);
        say(volume ? QStringLiteral("Listed: ") + describe(*volume)
                   : QStringLiteral("Not listed: %1 (ignored, or a destination's drive)")
                         .arg(entry.mountPoint));
    });
    controller.populateVolumes();
    for (const auto& volume : controller.dataArray())
        say(QStringLiteral("Listed: ") + describe(*volume));
    say(QStringLiteral("Watching for cards; Ctrl-C to stop."));

    QSocketNotifier signalNotifier(signalPipe[0], QSocketNotifier::Read);
    QObject::connect(&signalNotifier, &QSocketNotifier::activated,
                     [] { QCoreApplication::exit(0); });
    QCoreApplication::exec();

    // A second Ctrl-C while stopping ends the program at once.
    setSignalHandler(SIG_DFL);
    mounts.stopWatching();
    if (stopTransfers(controller))
        anyFailed = true;
    app.finishWork();
    QVLog::appendLog(u"Watch stopped");
    return anyFailed ? 1 : 0;
}
