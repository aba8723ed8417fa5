#pragma once
// Turns changes of the mount table into volumeDidMount / volumeDidUnmount signals on the
// thread that owns the monitor, through libmount's kernel monitor or, failing that, a poll.

#include <QObject>
#include <memory>
#include <vector>

#include "MountTable.h"

class QSocketNotifier;
class QTimer;
struct libmnt_monitor;

class MountMonitor : public QObject {
    Q_OBJECT

  public:
    /// How changes are noticed; Polling reads the table once a second.
    enum class Mode { Kernel, Polling };

    /// What changed between two snapshots of the local volumes.
    struct Changes {
        std::vector<MountEntry> mounted;
        std::vector<MountEntry> unmounted;
    };

    explicit MountMonitor(QObject* parent = nullptr, Mode mode = Mode::Kernel);
    ~MountMonitor() override;
    MountMonitor(const MountMonitor&) = delete;
    MountMonitor& operator=(const MountMonitor&) = delete;

    /// Takes the first snapshot without signalling and starts watching; a no-op when
    /// already running. Falls back to polling (logged) when the kernel monitor fails.
    void start();
    /// Stops watching; no signal comes after it returns.
    void stop();
    bool isRunning() const { return running_; }
    /// True when changes are found by polling rather than by the kernel monitor.
    bool isPolling() const;

    /// Volumes are matched by mount point and source; a volume mounted twice counts twice.
    static Changes diff(const std::vector<MountEntry>& before,
                        const std::vector<MountEntry>& after);

  Q_SIGNALS:
    void volumeDidMount(const MountEntry& entry);
    void volumeDidUnmount(const MountEntry& entry);

  private:
    struct MonitorDeleter {
        void operator()(libmnt_monitor* monitor) const;
    };
    // The notifier or timer may be the sender of the signal that led to stop(), so it is
    // silenced now and deleted once back in the event loop (or with this object).
    struct LaterDeleter {
        void operator()(QSocketNotifier* notifier) const;
        void operator()(QTimer* timer) const;
    };

    bool startKernelMonitor();
    void startPolling();
    void drainKernelMonitor();
    void refresh();

    Mode mode_;
    bool running_ = false;
    std::vector<MountEntry> snapshot_;
    // Declared before the notifier, so the notifier is silenced before the fd closes.
    std::unique_ptr<libmnt_monitor, MonitorDeleter> monitor_;
    std::unique_ptr<QSocketNotifier, LaterDeleter> notifier_;
    std::unique_ptr<QTimer, LaterDeleter> pollTimer_;
};
