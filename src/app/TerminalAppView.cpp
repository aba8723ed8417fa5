#include "TerminalAppView.h"

#include <unistd.h>

#include <QFileInfo>
#include <cstdio>

#include "QVFileManager.h"
#include "QVVolume.h"

namespace {

void print(const QString& text) {
    std::fputs(text.toUtf8().constData(), stdout);
}

}  // namespace

TerminalAppView::TerminalAppView() : terminal_(::isatty(STDOUT_FILENO) == 1) {
    clock_.start();
}

int TerminalAppView::showSheet(const SheetRequest& sheet) {
    endProgress();
    print(sheet.message + u'\n');
    if (!sheet.informativeText.isEmpty())
        print(sheet.informativeText + u'\n');
    if (sheet.defaultAnswer == 0 && !sheet.alternateButton.isEmpty())
        return 0;
    if (sheet.defaultAnswer == -1 && !sheet.otherButton.isEmpty())
        return -1;
    return 1;
}

void TerminalAppView::showVerificationFailureForVolume(const std::shared_ptr<QVVolume>& volume) {
    endProgress();
    // Each failing destination asks again; name only what wasn't named yet.
    std::size_t& shown = failuresShown_[volume.get()];
    for (const auto& failed : volume->failedFilesFrom(shown)) {
        print(QStringLiteral("Digest mismatch: %1\n")
                  .arg(failed->failedFile.value_or(failed->source)));
        ++shown;
    }
}

void TerminalAppView::transferDidEnd(const std::shared_ptr<QVVolume>& volume) {
    if (transferEnded_)
        transferEnded_(volume);
}

void TerminalAppView::setTransferEndedHandler(
    std::function<void(const std::shared_ptr<QVVolume>&)> handler) {
    transferEnded_ = std::move(handler);
}

void TerminalAppView::showInfo(const QString& title,
                               const std::vector<std::pair<QString, QString>>& rows) {
    endProgress();
    print(title + u'\n');
    for (const auto& [label, value] : rows)
        print(QStringLiteral("  %1: %2\n").arg(label, value));
}

void TerminalAppView::postGrowlNotification(const QString& title, const QString& description,
                                            const QString& icon, const QString& notificationName) {
    endProgress();
    print(QStringLiteral("%1: %2\n").arg(title, description));
    if (desktopNotifier_)
        desktopNotifier_->postGrowlNotification(title, description, icon, notificationName);
}

void TerminalAppView::postActionDone(const VolumeSnapshot& volume, const QString& what) {
    endProgress();
    print(QStringLiteral("%1: %2\n").arg(volume.name, what));
}

void TerminalAppView::volumesChanged(
    const std::vector<std::shared_ptr<const VolumeSnapshot>>& volumes) {
    if (!volumesChanged_)
        return;
    for (const auto& volume : volumes)
        volumesChanged_(*volume);
}

void TerminalAppView::setVolumesChangedHandler(std::function<void(const VolumeSnapshot&)> handler) {
    volumesChanged_ = std::move(handler);
}

void TerminalAppView::showProgress(const VolumeSnapshot& volume) {
    const double total = volume.maxProgress > 0 ? volume.maxProgress : 1;
    const double fraction = std::min(1.0, volume.progress / total);
    // The bar also counts each copy read back; a crew counts the card's bytes, once.
    const double passes =
        1.0 + (volume.checks.fromMedium ? double(std::max<qsizetype>(1, volume.destinations.size()))
                                        : 0.0);
    const double cardBytes = volume.maxProgress / passes;
    const double seconds = std::max(0.001, clock_.elapsed() / 1000.0);
    const QString remaining = volume.timeRemaining;
    const QString line = QStringLiteral("%1 / %2  %3/s  %4")
                             .arg(QVFileManager::formatFileSize(fraction * cardBytes),
                                  QVFileManager::formatFileSize(cardBytes),
                                  QVFileManager::formatFileSize(fraction * cardBytes / seconds),
                                  remaining.isEmpty() ? volume.statusText : remaining);
    if (terminal_) {
        const int width = 30;
        const int filled = int(fraction * width);
        print(QStringLiteral("\r[%1%2] %3%  %4\033[K")
                  .arg(QString(filled, u'#'), QString(width - filled, u' '))
                  .arg(int(fraction * 100), 3)
                  .arg(line));
        std::fflush(stdout);
        drawn_ = true;
        return;
    }
    const int decile = int(fraction * 10);
    if (decile == lastDecile_)
        return;
    lastDecile_ = decile;
    print(QStringLiteral("%1% %2\n").arg(decile * 10).arg(line));
    std::fflush(stdout);
}

void TerminalAppView::endProgress() {
    if (!drawn_)
        return;
    print(QStringLiteral("\n"));
    drawn_ = false;
}
