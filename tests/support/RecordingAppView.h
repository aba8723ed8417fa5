#pragma once
// Test doubles around the transfer logic: a view, a notifier and copy stages that record what
// they are asked, plus a helper that waits while the main thread keeps serving requests.

#include <QString>
#include <QStringList>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "AppView.h"
#include "Notifier.h"
#include "TransferStages.h"
#include "WaitUntil.h"

/// Serves main-thread requests until every worker thread has returned, then joins them.
void drainWorkers();

class RecordingAppView : public AppView {
  public:
    void reloadVolumeList() override;
    int showSheet(const SheetRequest& sheet) override;
    std::vector<int> selectedRows() const override;
    void setToolbarState(const ToolbarState& state) override;
    void setBadge(const QString& badge) override { record("badge: " + badge); }
    void setWindowTitle(const QString& title) override { record("title: " + title); }
    void setRemainingSpaceText(const QString& text) override { record("space: " + text); }
    void showVerificationFailureForVolume(const std::shared_ptr<QVVolume>&) override {
        record("review");
    }
    void showInfo(const QString& title,
                  const std::vector<std::pair<QString, QString>>& rows) override;
    void setAutomaticModeSelected(bool on) override {
        record(on ? "automatic: on" : "automatic: off");
    }
    /// Recorded as "did: WHAT", then handed to the post-action hook.
    void postActionDone(const VolumeSnapshot& volume, const QString& what) override;
    /// Recorded as "ended: NAME: STATUS TEXT".
    void transferDidEnd(const std::shared_ptr<QVVolume>& volume) override;

    QStringList events() const;
    int count(const QString& event) const { return int(events().count(event)); }
    /// Waits (serving the main thread) until event is recorded; true when it was, once.
    bool sawOnce(const QString& event) const;
    void setSelectedRows(std::vector<int> rows);
    /// Every sheet is answered so (1, 0 or -1), or as Return would answer it (kReturn).
    void setSheetAnswer(int answer) { sheetAnswer_ = answer; }
    static constexpr int kReturn = 2;
    /// Runs on every list reload, after it is recorded (a test's way in between two steps).
    void setReloadHook(std::function<void()> hook);
    /// Runs as each post-action line is recorded, while that step's thread waits.
    void setPostActionHook(std::function<void(const QString& what)> hook);
    ToolbarState toolbar() const;

  private:
    void record(const QString& event);
    mutable std::mutex mutex_;
    QStringList events_;
    std::vector<int> selected_;
    std::atomic<int> sheetAnswer_ = 1;
    ToolbarState toolbar_;
    std::function<void()> reloadHook_;
    std::function<void(const QString&)> postActionHook_;
};

class RecordingNotifier : public Notifier {
  public:
    void postGrowlNotification(const QString& title, const QString& description,
                               const QString& icon, const QString& notificationName) override;
    QStringList posted() const;

  private:
    mutable std::mutex mutex_;
    QStringList posted_;
};

/// Stages that record each hand-over; copyDisk and createDiskImage answer as told.
class RecordingStages : public TransferStages {
  public:
    bool copyDisk(const QString& path, const QStringList& destinations,
                  const std::shared_ptr<QVVolume>& volume) override;
    bool createDiskImage(const QString& imagePath, const QString& volumePath) override;
    void verifyVolume(const std::shared_ptr<QVVolume>& volume, const QString& destination) override;

    struct Copy {
        QString path;
        QStringList destinations;
        std::shared_ptr<QVVolume> volume;
    };
    std::vector<Copy> copies() const;
    QStringList images() const;
    QStringList verifications() const;
    void setCopyResult(bool result) { copyResult_ = result; }
    void setImageResult(bool result) { imageResult_ = result; }

  private:
    mutable std::mutex mutex_;
    std::vector<Copy> copies_;
    QStringList images_;
    QStringList verifications_;
    std::atomic<bool> copyResult_ = true;
    std::atomic<bool> imageResult_ = true;
};
