#include "TransferQueue.h"

#include <utility>

#include "QVLog.h"
#include "QVVolume.h"

void TransferQueue::giveBackSlotOf(VolumeStatus status) {
    const std::lock_guard lock(mutex_);
    if (count_ < 0)
        count_ = 0;
    if (status >= QVVolume::Copying && status <= QVVolume::Unmounting)
        --count_;
}

bool TransferQueue::admit(const std::shared_ptr<QVVolume>& volume, qint64 limit) {
    const std::lock_guard lock(mutex_);
    QVLog::appendLog(u"threads: %i", int(count_));
    QVLog::appendLog(u"total threads: %i", int(limit));
    if (count_ < limit) {
        ++count_;
        return true;
    }
    waiting_.push_back(volume);
    return false;
}

std::shared_ptr<QVVolume> TransferQueue::takeNext() {
    const std::lock_guard lock(mutex_);
    if (waiting_.empty())
        return nullptr;
    std::shared_ptr<QVVolume> volume = waiting_.front();
    waiting_.erase(waiting_.begin());
    // Taken now, so a concurrent call can't hand out the same slot twice.
    ++count_;
    return volume;
}

void TransferQueue::increment() {
    const std::lock_guard lock(mutex_);
    ++count_;
}

void TransferQueue::decrement() {
    const std::lock_guard lock(mutex_);
    --count_;
}

qint64 TransferQueue::count() const {
    const std::lock_guard lock(mutex_);
    return count_;
}

TransferQueue::Volumes TransferQueue::waiting() const {
    const std::lock_guard lock(mutex_);
    return waiting_;
}

bool TransferQueue::withdraw(const std::shared_ptr<QVVolume>& volume) {
    const std::lock_guard lock(mutex_);
    return std::erase(waiting_, volume) > 0;
}

TransferQueue::Volumes TransferQueue::dropWaiting() {
    const std::lock_guard lock(mutex_);
    return std::exchange(waiting_, {});
}
