#pragma once
// Worker threads that are tracked rather than detached, so their owner can wait for every one
// of them (at shutdown, or before a verdict) instead of tearing them down mid-work.
// Every operation is safe from any thread; the destructor waits for what is still running.

#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>
#include <thread>

class WorkerThreads {
  public:
    WorkerThreads() = default;
    ~WorkerThreads();
    WorkerThreads(const WorkerThreads&) = delete;
    WorkerThreads& operator=(const WorkerThreads&) = delete;

    /// Starts fn on a new thread that joinAll() will wait for.
    void start(std::function<void()> fn);
    /// How many started threads haven't returned yet.
    std::size_t unfinished() const;
    /// Waits for every started thread, including ones started while waiting. On the main
    /// thread it keeps handling events meanwhile, so work a thread hands to it still runs.
    void joinAll();

  private:
    void reap();
    bool allFinished() const;  // REQUIRES: mutex_ is held
    void serveEventsUntilAllFinished();
    void joinAllOnMainThread();

    mutable std::mutex mutex_;
    std::condition_variable threadFinished_;
    std::list<std::thread> running_;       // guarded by mutex_
    std::list<std::thread::id> finished_;  // guarded by mutex_
};
