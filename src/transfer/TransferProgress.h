#pragma once
// How far each volume's transfer has come, and when that is worth telling the window: a volume
// every 4 MiB (every 3 s while verifying), the overall share once per whole percent.
// Safe from any thread; one mutex guards the counts since the last telling.

#include <QDateTime>
#include <atomic>
#include <map>
#include <mutex>
#include <optional>

class QVVolume;

class TransferProgress {
  public:
    /// Adds copied or read-back bytes to the volume's bar; true when the list is due a redraw.
    bool advance(QVVolume& volume, double bytes);
    /// Adds bytes digested by verification; true when the last redraw is 3 s old or more.
    bool advanceVerification(QVVolume& volume, double bytes, const QDateTime& now);
    void forget(const QVVolume& volume);
    /// The new whole percent (-1: nothing running) when it differs from the last one told.
    std::optional<int> percentChange(float overall);

  private:
    std::mutex mutex_;
    std::map<const QVVolume*, double> sinceRefresh_;  // guarded by mutex_
    std::atomic<int> shownPercent_{-2};
};
