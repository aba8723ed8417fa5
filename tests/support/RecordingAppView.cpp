#include "RecordingAppView.h"

#include "DetachedThreads.h"
#include "QVVolume.h"

void drainWorkers() {
    waitUntil([] { return DetachedThreads::unfinished() == 0; });
    DetachedThreads::joinAll();
}

void RecordingAppView::record(const QString& event) {
    const std::lock_guard lock(mutex_);
    events_ << event;
}

void RecordingAppView::reloadVolumeList() {
    record(QStringLiteral("reload"));
    std::function<void()> hook;
    {
        const std::lock_guard lock(mutex_);
        hook = reloadHook_;
    }
    if (hook)
        hook();
}

void RecordingAppView::setReloadHook(std::function<void()> hook) {
    const std::lock_guard lock(mutex_);
    reloadHook_ = std::move(hook);
}

void RecordingAppView::postActionDone(const VolumeSnapshot&, const QString& what) {
    record("did: " + what);
    std::function<void(const QString&)> hook;
    {
        const std::lock_guard lock(mutex_);
        hook = postActionHook_;
    }
    if (hook)
        hook(what);
}

void RecordingAppView::setPostActionHook(std::function<void(const QString& what)> hook) {
    const std::lock_guard lock(mutex_);
    postActionHook_ = std::move(hook);
}

void RecordingAppView::transferDidEnd(const std::shared_ptr<QVVolume>& volume) {
    record(QStringLiteral("ended: %1: %2").arg(volume->name(), volume->statusText()));
}

int RecordingAppView::showSheet(const SheetRequest& sheet) {
    record(QStringLiteral("sheet: %1 | %2").arg(sheet.message, sheet.informativeText));
    return sheetAnswer_ == kReturn ? sheet.defaultAnswer : sheetAnswer_.load();
}

std::vector<int> RecordingAppView::selectedRows() const {
    const std::lock_guard lock(mutex_);
    return selected_;
}

void RecordingAppView::setToolbarState(const ToolbarState& state) {
    record(QStringLiteral("toolbar: %1").arg(state.transferLabel));
    const std::lock_guard lock(mutex_);
    toolbar_ = state;
}

void RecordingAppView::showInfo(const QString& title,
                                const std::vector<std::pair<QString, QString>>& rows) {
    QStringList text;
    for (const auto& [label, value] : rows)
        text << label + u'=' + value;
    record(QStringLiteral("info: %1 | %2").arg(title, text.join(u"; ")));
}

bool RecordingAppView::sawOnce(const QString& event) const {
    return waitUntil([&] { return count(event) > 0; }) && count(event) == 1;
}

QStringList RecordingAppView::events() const {
    const std::lock_guard lock(mutex_);
    return events_;
}

void RecordingAppView::setSelectedRows(std::vector<int> rows) {
    const std::lock_guard lock(mutex_);
    selected_ = std::move(rows);
}

ToolbarState RecordingAppView::toolbar() const {
    const std::lock_guard lock(mutex_);
    return toolbar_;
}

void RecordingNotifier::postGrowlNotification(const QString& title, const QString& description,
                                              const QString&, const QString& notificationName) {
    const std::lock_guard lock(mutex_);
    posted_ << QStringLiteral("%1 | %2 | %3").arg(title, description, notificationName);
}

QStringList RecordingNotifier::posted() const {
    const std::lock_guard lock(mutex_);
    return posted_;
}

bool RecordingStages::copyDisk(const QString& path, const QStringList& destinations,
                               const std::shared_ptr<QVVolume>& volume) {
    const std::lock_guard lock(mutex_);
    copies_.push_back({path, destinations, volume});
    return copyResult_;
}

bool RecordingStages::createDiskImage(const QString& imagePath, const QString&) {
    const std::lock_guard lock(mutex_);
    images_ << imagePath;
    return imageResult_;
}

void RecordingStages::verifyVolume(const std::shared_ptr<QVVolume>&, const QString& destination) {
    const std::lock_guard lock(mutex_);
    verifications_ << destination;
}

std::vector<RecordingStages::Copy> RecordingStages::copies() const {
    const std::lock_guard lock(mutex_);
    return copies_;
}

QStringList RecordingStages::images() const {
    const std::lock_guard lock(mutex_);
    return images_;
}

QStringList RecordingStages::verifications() const {
    const std::lock_guard lock(mutex_);
    return verifications_;
}
