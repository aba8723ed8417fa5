#pragma once
// The transfer's view on a terminal: sheets are printed and answered as Return would answer
// them, failures are listed, and progress is drawn as a bar (plain lines when the output is
// not a terminal). Also prints notifications.

#include <QElapsedTimer>
#include <functional>
#include <map>
#include <memory>

#include "AppView.h"
#include "Notifier.h"
#include "VolumeSnapshot.h"

class QVVolume;

class TerminalAppView : public AppView, public Notifier {
  public:
    TerminalAppView();

    void reloadVolumeList() override {}
    int showSheet(const SheetRequest& sheet) override;
    std::vector<int> selectedRows() const override { return {}; }
    void setToolbarState(const ToolbarState&) override {}
    void setBadge(const QString&) override {}
    void setWindowTitle(const QString&) override {}
    void setRemainingSpaceText(const QString&) override {}
    void showVerificationFailureForVolume(const std::shared_ptr<QVVolume>& volume) override;
    void showInfo(const QString& title,
                  const std::vector<std::pair<QString, QString>>& rows) override;
    /// Hands the ended transfer to the handler, if one is set (on the thread that ended it).
    void transferDidEnd(const std::shared_ptr<QVVolume>& volume) override;
    /// Prints the notification, and posts it on the desktop too when one was set.
    void postGrowlNotification(const QString& title, const QString& description,
                               const QString& icon, const QString& notificationName) override;
    void setDesktopNotifier(Notifier* notifier) { desktopNotifier_ = notifier; }
    /// Prints what a step after the transfer did, as "NAME: what".
    void postActionDone(const VolumeSnapshot& volume, const QString& what) override;

    /// Hands each changed volume to the handler, if one is set (main thread).
    void volumesChanged(const std::vector<std::shared_ptr<const VolumeSnapshot>>& volumes) override;
    void setVolumesChangedHandler(std::function<void(const VolumeSnapshot&)> handler);
    /// Draws the volume's progress: bytes, speed and time left.
    void showProgress(const VolumeSnapshot& volume);
    /// Ends the progress line before other output.
    void endProgress();
    /// Set before any transfer starts.
    void setTransferEndedHandler(std::function<void(const std::shared_ptr<QVVolume>&)> handler);

  private:
    const bool terminal_;
    bool drawn_ = false;
    int lastDecile_ = -1;
    QElapsedTimer clock_;
    Notifier* desktopNotifier_ = nullptr;
    std::function<void(const std::shared_ptr<QVVolume>&)> transferEnded_;
    std::function<void(const VolumeSnapshot&)> volumesChanged_;
    std::map<const QVVolume*, std::size_t> failuresShown_;  // the review is shown per destination
};
