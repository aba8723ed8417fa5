#pragma once
// The Linux desktop behind Desktop: the file manager over D-Bus (FileManager1) or xdg-open, gio
// for default applications, the freedesktop sound theme through canberra or PulseAudio, and an
// attention handler the window installs. Safe from any thread.

#include <QDBusConnection>
#include <functional>
#include <mutex>

#include "Desktop.h"

class ProcessRunner;

class LinuxDesktop : public Desktop {
  public:
    explicit LinuxDesktop(ProcessRunner& processes,
                          QDBusConnection bus = QDBusConnection::sessionBus());

    /// What requestAttention does; the window sets its alert here. None: a logged no-op.
    void setAttentionHandler(std::function<void()> handler);

    bool revealFolder(const QString& folder) override;
    bool openFiles(const QStringList& files) override;
    bool playSound(const QString& name) override;
    void requestAttention() override;
    void noteFileSystemChanged(const QString& folder) override;

  private:
    bool showFoldersOverBus(const QString& folder);

    ProcessRunner& processes_;
    const QDBusConnection bus_;
    std::mutex mutex_;
    std::function<void()> attention_;  // guarded by mutex_
};
