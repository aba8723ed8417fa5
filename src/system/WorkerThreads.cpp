#include "WorkerThreads.h"

#include <QCoreApplication>
#include <QThread>
#include <algorithm>
#include <chrono>

WorkerThreads::~WorkerThreads() {
    joinAll();
}

void WorkerThreads::start(std::function<void()> fn) {
    reap();
    const std::lock_guard lock(mutex_);
    running_.emplace_back([this, fn = std::move(fn)] {
        fn();
        {
            const std::lock_guard done(mutex_);
            finished_.push_back(std::this_thread::get_id());
        }
        threadFinished_.notify_all();
    });
}

// Joins the threads that have already returned so the list doesn't grow without bound.
void WorkerThreads::reap() {
    std::list<std::thread> done;
    {
        const std::lock_guard lock(mutex_);
        for (const std::thread::id id : finished_) {
            const auto it = std::find_if(running_.begin(), running_.end(),
                                         [id](const std::thread& t) { return t.get_id() == id; });
            if (it != running_.end())
                done.splice(done.end(), running_, it);
        }
        finished_.clear();
    }
    for (std::thread& t : done)
        t.join();
}

std::size_t WorkerThreads::unfinished() const {
    const std::lock_guard lock(mutex_);
    const std::size_t running = running_.size();
    const std::size_t finished = finished_.size();
    return running > finished ? running - finished : 0;
}

bool WorkerThreads::allFinished() const {
    return running_.size() <= finished_.size();
}

// A worker may be waiting for the main thread (a blocking performOnMainThread, a task's
// watchdog), so the main thread keeps handling events until every worker has returned.
void WorkerThreads::serveEventsUntilAllFinished() {
    std::unique_lock lock(mutex_);
    while (!allFinished()) {
        lock.unlock();
        QCoreApplication::processEvents();
        lock.lock();
        threadFinished_.wait_for(lock, std::chrono::milliseconds(10),
                                 [this] { return allFinished(); });
    }
}

void WorkerThreads::joinAllOnMainThread() {
    for (;;) {
        serveEventsUntilAllFinished();
        reap();
        const std::lock_guard lock(mutex_);
        if (running_.empty())
            return;
    }
}

void WorkerThreads::joinAll() {
    const QCoreApplication* app = QCoreApplication::instance();
    if (app != nullptr && QThread::currentThread() == app->thread())
        return joinAllOnMainThread();
    for (;;) {
        std::list<std::thread> all;
        {
            const std::lock_guard lock(mutex_);
            if (running_.empty()) {
                finished_.clear();
                return;
            }
            all.swap(running_);
        }
        for (std::thread& t : all) {
            if (t.get_id() != std::this_thread::get_id())
                t.join();
            else
                t.detach();
        }
    }
}
