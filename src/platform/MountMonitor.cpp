#include "MountMonitor.h"

#include <libmount/libmount.h>

#include <QSocketNotifier>
#include <QTimer>
#include <map>
#include <utility>

#include "QVLog.h"

namespace {

constexpr int kPollIntervalMs = 1000;

using Key = std::pair<QString, QString>;

Key keyOf(const MountEntry& entry) {
    return {entry.mountPoint, entry.source};
}

// Entries of from not matched (by key, one for one) in against.
std::vector<MountEntry> missingFrom(const std::vector<MountEntry>& from,
                                    const std::vector<MountEntry>& against) {
    std::map<Key, int> available;
    for (const MountEntry& entry : against) {
        ++available[keyOf(entry)];
    }
    std::vector<MountEntry> missing;
    for (const MountEntry& entry : from) {
        int& count = available[keyOf(entry)];
        if (count > 0) {
            --count;
        } else {
            missing.push_back(entry);
        }
    }
    return missing;
}

}  // namespace

void MountMonitor::MonitorDeleter::operator()(libmnt_monitor* monitor) const {
    mnt_unref_monitor(monitor);
}

void MountMonitor::LaterDeleter::operator()(QSocketNotifier* notifier) const {
    notifier->setEnabled(false);
    notifier->deleteLater();
}

void MountMonitor::LaterDeleter::operator()(QTimer* timer) const {
    timer->stop();
    timer->deleteLater();
}

MountMonitor::MountMonitor(QObject* parent, Mode mode) : QObject(parent), mode_(mode) {}

MountMonitor::~MountMonitor() {
    stop();
}

bool MountMonitor::isPolling() const {
    return pollTimer_ != nullptr;
}

MountMonitor::Changes MountMonitor::diff(const std::vector<MountEntry>& before,
                                         const std::vector<MountEntry>& after) {
    return Changes{missingFrom(after, before), missingFrom(before, after)};
}

void MountMonitor::start() {
    if (running_) {
        return;
    }
    snapshot_ = MountTable::localVolumes();
    running_ = true;
    if (mode_ == Mode::Polling || !startKernelMonitor()) {
        startPolling();
    }
}

void MountMonitor::stop() {
    running_ = false;
    notifier_.reset();
    monitor_.reset();
    pollTimer_.reset();
}

bool MountMonitor::startKernelMonitor() {
    std::unique_ptr<libmnt_monitor, MonitorDeleter> monitor(mnt_new_monitor());
    if (!monitor) {
        QVLog::appendLog(u"MountMonitor: no mount monitor; polling the mount table instead");
        return false;
    }
    const int enabled = mnt_monitor_enable_kernel(monitor.get(), 1);
    const int fd = enabled == 0 ? mnt_monitor_get_fd(monitor.get()) : -1;
    if (fd < 0) {
        QVLog::appendLog(
            u"MountMonitor: kernel mount monitor unavailable (%@, %@); polling "
            u"the mount table instead",
            enabled, fd);
        return false;
    }
    monitor_ = std::move(monitor);
    // Parented, so one still waiting for deleteLater goes with this object.
    notifier_.reset(new QSocketNotifier(fd, QSocketNotifier::Read, this));
    connect(notifier_.get(), &QSocketNotifier::activated, this, &MountMonitor::drainKernelMonitor);
    return true;
}

void MountMonitor::startPolling() {
    notifier_.reset();
    monitor_.reset();
    pollTimer_.reset(new QTimer(this));
    pollTimer_->setInterval(kPollIntervalMs);
    connect(pollTimer_.get(), &QTimer::timeout, this, &MountMonitor::refresh);
    pollTimer_->start();
}

void MountMonitor::drainKernelMonitor() {
    // Several changes may be pending; one re-read of the table covers them all.
    int status = 0;
    while ((status = mnt_monitor_next_change(monitor_.get(), nullptr, nullptr)) == 0) {
    }
    if (status < 0) {
        QVLog::appendLog(
            u"MountMonitor: reading mount changes failed (%@); polling the "
            u"mount table instead",
            status);
        startPolling();
    }
    refresh();
}

void MountMonitor::refresh() {
    if (!running_) {
        return;
    }
    std::vector<MountEntry> current = MountTable::localVolumes();
    const Changes changes = diff(snapshot_, current);
    snapshot_ = std::move(current);
    // Unmounts first, so a card moved to another mount point reads as out, then in.
    for (const MountEntry& entry : changes.unmounted) {
        Q_EMIT volumeDidUnmount(entry);
        if (!running_) {
            return;
        }
    }
    for (const MountEntry& entry : changes.mounted) {
        Q_EMIT volumeDidMount(entry);
        if (!running_) {
            return;
        }
    }
}
