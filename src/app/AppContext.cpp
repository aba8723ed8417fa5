#include "AppContext.h"

#include <QCoreApplication>
#include <QDeadlineTimer>

#include "AppController.h"
#include "CrashHandler.h"
#include "DetachedThreads.h"
#include "FileLayer.h"
#include "LinuxDesktop.h"
#include "LinuxDiskInformation.h"
#include "LinuxMountService.h"
#include "LinuxVolumeActions.h"
#include "LogPlaces.h"
#include "PosixProcessRunner.h"
#include "Preferences.h"
#include "QVAuthorization.h"
#include "QVException.h"
#include "QVGrowl.h"
#include "QVLocalPaths.h"
#include "QVLog.h"
#include "QVTaskEx.h"
#include "QVTimecode.h"
#include "SettingsStore.h"
#include "SystemClock.h"
#include "WorkerThreads.h"
#include "XdgLocalPaths.h"

AppContext::AppContext() {
    QVException::installUncaughtExceptionHandler();
    QVLog::createNewLog(LogPlaces::forCurrentUser(), SystemClock::shared());
    settings_ = std::make_unique<SettingsStore>(SettingsStore::defaultPath());
    Preferences(*settings_).registerAndMigrate();
    threads_ = std::make_unique<WorkerThreads>();
    mounts_ = std::make_unique<LinuxMountService>();
    processes_ = std::make_unique<PosixProcessRunner>();
    disks_ = std::make_unique<LinuxDiskInformation>();
    volumes_ = std::make_unique<LinuxVolumeActions>(*mounts_, *processes_, *disks_);
    paths_ = std::make_unique<XdgLocalPaths>(XdgLocalPaths::fromProcess(*processes_));
    // The class-level fronts answer from these same services from here on.
    QVTaskEx::install(processes_.get());
    QVLocalPaths::install(paths_.get());
    QVTimecode::install(SystemClock::shared().get());
    desktop_ = std::make_unique<LinuxDesktop>(*processes_);
    growl_ = std::make_unique<QVGrowl>(Preferences::globalFilePath(), SystemClock::shared());
    // pkexec needs a desktop session to ask in.
    const bool desktop =
        !qEnvironmentVariableIsEmpty("DISPLAY") || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
    authorization_ =
        std::make_unique<QVAuthorization>(*processes_, *paths_, *SystemClock::shared(), desktop);
    QString name = QCoreApplication::applicationName();
    if (name.isEmpty())
        name = QStringLiteral("cardsweep");
    const QStringList crashFolders = QVBugReporter::crashFolders(*paths_);
    crashPlaces_ = {paths_->pathForDirectory(StandardDirectory::ApplicationSupport, true) +
                        QStringLiteral("/Quorvant/%1 Launches.plist").arg(name),
                    crashFolders, Preferences::globalFilePath(), name};
    if (!crashFolders.isEmpty())
        CrashHandler::install(crashFolders.front(), name);
}

std::optional<QString> AppContext::startBugReporter(const QVBugReporter::Delegate& delegate) {
    bugReporterStarted_ = true;
    return QVBugReporter::startBugReporter(crashPlaces_, QDateTime::currentDateTime(), delegate);
}

QVTroubleshootingUtils::Places AppContext::troubleshootingPlaces() const {
    return QVTroubleshootingUtils::placesFor(*paths_, SystemClock::shared());
}

QString AppContext::gatherLogs(bool silent, const QVTroubleshootingUtils::Tell& tell) const {
    return QVTroubleshootingUtils::gatherLogsForAppsWithNames(
        troubleshootingPlaces(),
        {QStringLiteral("Cardsweep"), QStringLiteral("cardsweep-cli"),
         QStringLiteral("CardsweepHelper")},
        silent, {Preferences::globalFilePath(), Preferences::qcFilePath()}, tell);
}

AppContext::~AppContext() {
    if (bugReporterStarted_)
        QVBugReporter::stopBugReporter(crashPlaces_, QDateTime::currentDateTime());
    mounts_->stopWatching();
    threads_->joinAll();
    DetachedThreads::joinAll();
    // Nothing may reach the services through the fronts once they are gone.
    QVTaskEx::install(nullptr);
    QVLocalPaths::install(nullptr);
    QVTimecode::install(nullptr);
    // The writer must be done before the statics it formats with are torn down.
    QVLog::sharedController().willTerminate();
}

QString AppContext::settingsProblem() const {
    return settings_->loadProblem();
}

Services AppContext::services(Notifier& notifier) {
    return Services{FileLayer::posix(),
                    *mounts_,
                    *volumes_,
                    *disks_,
                    *processes_,
                    *paths_,
                    notifier,
                    *desktop_,
                    *threads_,
                    SystemClock::shared(),
                    authorization_.get()};
}

FileLayer& AppContext::files() {
    return FileLayer::posix();
}

std::shared_ptr<const Clock> AppContext::clock() const {
    return SystemClock::shared();
}

void AppContext::finishWork() {
    // Stopped copies end quickly; their last words may still need the main loop.
    const QDeadlineTimer deadline(60000);
    while (threads_->unfinished() > 0 && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    threads_->joinAll();
    QCoreApplication::processEvents();
}

MountService& AppContext::mounts() {
    return *mounts_;
}

ProcessRunner& AppContext::processes() {
    return *processes_;
}

const LocalPaths& AppContext::paths() const {
    return *paths_;
}

std::unique_ptr<AppController> AppContext::makeController(AppView& view, Notifier& notifier) {
    return std::make_unique<AppController>(*settings_, view, services(notifier));
}
