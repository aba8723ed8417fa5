#pragma once
// A pool that runs queued operations on up to a fixed number of threads. Pending operations
// can be cancelled; running ones finish. Thread-safe.

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

class OperationQueue {
  public:
    explicit OperationQueue(int maxConcurrentOperations = 8);
    ~OperationQueue();
    OperationQueue(const OperationQueue&) = delete;
    OperationQueue& operator=(const OperationQueue&) = delete;

    void addOperation(std::function<void()> operation);
    /// Drops every operation that hasn't started.
    void cancelAllOperations();
    /// Blocks until nothing is pending or running (other callers' work included).
    void waitUntilAllOperationsAreFinished();
    /// Blocks while `count` or more operations are waiting to start.
    void waitUntilPendingBelow(std::size_t count);

  private:
    void work();

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> pending_;  // guarded by mutex_
    int running_ = 0;                            // guarded by mutex_
    bool stopping_ = false;                      // guarded by mutex_
    std::vector<std::thread> workers_;
};
