#include "AppContext.h"

#include <QCoreApplication>
#include <QDeadlineTimer>

#include "AppController.h"
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
#include "QVLog.h"
#include "SettingsStore.h"
#include "WorkerThreads.h"
#include "XdgLocalPaths.h"

AppContext::AppContext() {
    QVException::installUncaughtExceptionHandler();
    QVLog::createNewLog(LogPlaces::forCurrentUser());
    settings_ = std::make_unique<SettingsStore>(SettingsStore::defaultPath());
    Preferences(*settings_).registerAndMigrate();
    threads_ = std::make_unique<WorkerThreads>();
    mounts_ = std::make_unique<LinuxMountService>();
    processes_ = std::make_unique<PosixProcessRunner>();
    volumes_ = std::make_unique<LinuxVolumeActions>(*mounts_, *processes_);
    disks_ = std::make_unique<LinuxDiskInformation>();
    paths_ = std::make_unique<XdgLocalPaths>(XdgLocalPaths::fromProcess());
    desktop_ = std::make_unique<LinuxDesktop>(*processes_);
    growl_ = std::make_unique<QVGrowl>(Preferences::globalFilePath());
    // pkexec needs a desktop session to ask in.
    const bool desktop =
        !qEnvironmentVariableIsEmpty("DISPLAY") || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
    authorization_ = std::make_unique<QVAuthorization>(*processes_, *paths_, desktop);
}

AppContext::~AppContext() {
    mounts_->stopWatching();
    threads_->joinAll();
    DetachedThreads::joinAll();
    // The writer must be done before the statics it formats with are torn down.
    QVLog::sharedController().willTerminate();
}

QString AppContext::settingsProblem() const {
    return settings_->loadProblem();
}

Services AppContext::services(Notifier& notifier) {
    return Services{
        FileLayer::posix(), *mounts_,  *volumes_, *disks_,         *processes_,         *paths_,
        notifier,           *desktop_, *threads_, Clock::system(), authorization_.get()};
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
