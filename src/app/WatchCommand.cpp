#include "WatchCommand.h"

#include <CLI/CLI.hpp>
#include <QCoreApplication>
#include <QFileInfo>
#include <cstdio>

#include "AppContext.h"
#include "AppController.h"
#include "MountService.h"
#include "Preferences.h"
#include "QVGrowl.h"
#include "QVLog.h"
#include "QVVolume.h"
#include "SettingsStore.h"
#include "SignalPipe.h"
#include "TerminalAppView.h"
#include "TransferRequest.h"
#include "TransferSummary.h"
#include "WorkerThreads.h"

namespace {

void say(const QString& line) {
    std::printf("%s\n", line.toUtf8().constData());
    std::fflush(stdout);
}

void applyOverrides(SettingsStore& settings, const QStringList& destinations, bool image) {
    // Imaging a whole card is asked for on the command line, never inherited from the desktop.
    settings.setOverride(SettingsKey::transferType, image ? 1 : 0);
    if (destinations.isEmpty())
        return;
    std::vector<DestinationEntry> entries;
    for (const QString& destination : destinations)
        entries.push_back({1, QFileInfo(destination).absoluteFilePath()});
    settings.setOverride(SettingsKey::destinationList, entries);
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
bool reportVerdict(QVVolume& volume) {
    const VolumeStatus status = volume.status();
    if (status != QVVolume::Done) {
        say(QStringLiteral("%1: %2").arg(
            volume.name(), status == QVVolume::Failed
                               ? TransferSummary::verdict(volume)
                               : volume.errorString().value_or(QStringLiteral("stopped"))));
        for (const QString& line : TransferSummary::lines(volume)) {
            if (!line.startsWith(QLatin1String("Destination: ")) && !line.startsWith(u' '))
                say(QStringLiteral("%1: %2").arg(volume.name(), line));
        }
        return false;
    }
    say(QStringLiteral("%1: %2 -> %3")
            .arg(volume.name(), TransferSummary::verdict(volume),
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

WatchCommand::WatchCommand()
    : CliCommand("watch", "Transfer every recognised card as it is mounted, until Ctrl-C") {}

void WatchCommand::declareOptions(CLI::App& command) {
    command.add_option("--dest", destinations_, "A destination for this run (repeat for more)")
        ->take_all();
    actions_.addTo(command);
    command.add_flag("--image", image_, "Make a disk image of each card instead of copying files");
}

int WatchCommand::run(AppContext& app) {
    SettingsStore& settings = app.settings();
    const QStringList destinations = toStrings(destinations_);
    if (const auto problem = TransferRequest::destinationsProblem(destinations))
        return fail(2, problem->line);
    actions_.applyTo(settings);
    applyOverrides(settings, destinations, image_);
    SignalPipe stopSignal([](int) { QCoreApplication::exit(0); });
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
            &context, [&, volume] { anyFailed |= !reportVerdict(*volume); }, Qt::QueuedConnection);
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

    QCoreApplication::exec();

    // A second Ctrl-C while stopping ends the program at once.
    SignalPipe::restoreDefaults();
    mounts.stopWatching();
    if (stopTransfers(controller))
        anyFailed = true;
    app.finishWork();
    // What each stopped transfer left where: its folders are marked, not complete.
    for (const auto& volume : controller.dataArray()) {
        if (volume->status() != QVVolume::Cancelled || volume->destinations().isEmpty())
            continue;
        say(QStringLiteral("%1: %2").arg(volume->name(), TransferSummary::verdict(*volume)));
        for (const QString& line : TransferSummary::lines(*volume))
            say(QStringLiteral("%1: %2").arg(volume->name(), line));
    }
    QVLog::appendLog(u"Watch stopped");
    return stopSignal.exitStatus(anyFailed ? 1 : 0);
}
