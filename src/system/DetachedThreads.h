#pragma once
// "Detached" worker threads that are still tracked, so the process can join every one
// of them before it exits instead of tearing them down mid-work.

#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>
#include <thread>

class DetachedThreads {
  public:
    /// Starts fn on a new thread that joinAll() will wait for.
    static void start(std::function<void()> fn);

    /// How many started threads haven't returned yet.
    static std::size_t unfinished();

    /// Waits for every started thread, including ones started while waiting. On the main
    /// thread it keeps handling events meanwhile, so work a thread hands to it still runs.
    static void joinAll();

    ~DetachedThreads();

  private:
    DetachedThreads() = default;
    static DetachedThreads& shared();
    void reap();
    bool allFinished() const;
    void serveEventsUntilAllFinished();

    std::mutex mutex_;
    std::condition_variable threadFinished_;
    std::list<std::thread> running_;       // guarded by mutex_
    std::list<std::thread::id> finished_;  // guarded by mutex_
};
