#pragma once
// The one setup every program of Cardsweep starts with: the exception handler, the log, the
// settings store with its registered defaults, and the services that reach the system, built
// from their Linux implementations. Its end is the orderly shutdown: mount watching stops,
// every worker is waited for, then the log writer. Made and used on the main thread, after the
// Qt application object.

#include <QString>
#include <memory>

#include "QVBugReporter.h"
#include "QVTroubleshootingUtils.h"
#include "Services.h"

class AppController;
class AppView;
class FileLayer;
class LinuxDesktop;
class LinuxDiskInformation;
class LinuxMountService;
class LinuxVolumeActions;
class PosixProcessRunner;
class XdgLocalPaths;
class Notifier;
class QVAuthorization;
class QVGrowl;
class SettingsStore;
class WorkerThreads;

class AppContext {
  public:
    AppContext();
    ~AppContext();
    AppContext(const AppContext&) = delete;
    AppContext& operator=(const AppContext&) = delete;

    SettingsStore& settings() { return *settings_; }
    /// Why the settings file could not be read, empty when it could.
    QString settingsProblem() const;
    /// The services, with notifications going to notifier.
    Services services(Notifier& notifier);
    /// The files and the time the services reach; for work done without a controller.
    FileLayer& files();
    std::shared_ptr<const Clock> clock() const;
    WorkerThreads& threads() { return *threads_; }
    MountService& mounts();
    ProcessRunner& processes();
    const LocalPaths& paths() const;
    /// Desktop notifications through the session's notification service.
    QVGrowl& growl() { return *growl_; }
    LinuxDesktop& desktop() { return *desktop_; }

    /// Waits for the workers (at most a minute) while the main loop serves their last requests,
    /// then joins them. For the end of a program, after its transfers were stopped.
    void finishWork();

    /// Records this launch, after checking whether the last run of this program (named by
    /// the application's name) crashed: its report goes to delegate unless switched off. The
    /// exit is recorded when this context ends in order.
    std::optional<QString> startBugReporter(const QVBugReporter::Delegate& delegate = {});
    /// Where logs, crash reports and settings are gathered from, for support.
    QVTroubleshootingUtils::Places troubleshootingPlaces() const;
    /// Gathers this suite's logs, crash reports and settings into a zip on the desktop.
    QString gatherLogs(bool silent, const QVTroubleshootingUtils::Tell& tell = {}) const;

    /// A controller over these services showing through view (which also notifies).
    std::unique_ptr<AppController> makeController(AppView& view, Notifier& notifier);

  private:
    std::unique_ptr<SettingsStore> settings_;
    std::unique_ptr<WorkerThreads> threads_;
    std::unique_ptr<LinuxMountService> mounts_;
    std::unique_ptr<PosixProcessRunner> processes_;
    std::unique_ptr<LinuxVolumeActions> volumes_;
    std::unique_ptr<LinuxDiskInformation> disks_;
    std::unique_ptr<XdgLocalPaths> paths_;
    std::unique_ptr<LinuxDesktop> desktop_;
    std::unique_ptr<QVGrowl> growl_;
    std::unique_ptr<QVAuthorization> authorization_;
    QVBugReporter::Places crashPlaces_;
    bool bugReporterStarted_ = false;
};
