#include "OperationQueue.h"

OperationQueue::OperationQueue(int maxConcurrentOperations) {
    for (int i = 0; i < maxConcurrentOperations; ++i)
        workers_.emplace_back([this] { work(); });
}

OperationQueue::~OperationQueue() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
        pending_.clear();
    }
    changed_.notify_all();
    for (std::thread& worker : workers_)
        worker.join();
}

void OperationQueue::addOperation(std::function<void()> operation) {
    {
        const std::lock_guard lock(mutex_);
        pending_.push_back(std::move(operation));
    }
    changed_.notify_all();
}

void OperationQueue::cancelAllOperations() {
    {
        const std::lock_guard lock(mutex_);
        pending_.clear();
    }
    changed_.notify_all();
}

void OperationQueue::waitUntilAllOperationsAreFinished() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return pending_.empty() && running_ == 0; });
}

void OperationQueue::waitUntilPendingBelow(std::size_t count) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return pending_.size() < count; });
}

void OperationQueue::work() {
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return stopping_ || !pending_.empty(); });
        if (stopping_)
            return;
        std::function<void()> operation = std::move(pending_.front());
        pending_.pop_front();
        ++running_;
        lock.unlock();
        operation();
        lock.lock();
        --running_;
        changed_.notify_all();
    }
}
