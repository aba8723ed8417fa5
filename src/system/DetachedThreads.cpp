#include "DetachedThreads.h"

#include <QCoreApplication>
#include <QThread>
#include <algorithm>
#include <chrono>

DetachedThreads& DetachedThreads::shared() {
    static DetachedThreads instance;
    return instance;
}

// At exit, anything still running is waited for rather than torn down mid-work.
DetachedThreads::~DetachedThreads() {
    joinAll();
}

void DetachedThreads::start(std::function<void()> fn) {
    DetachedThreads& self = shared();
    self.reap();
    const std::lock_guard lock(self.mutex_);
    self.running_.emplace_back([&self, fn = std::move(fn)] {
        fn();
        {
            const std::lock_guard done(self.mutex_);
            self.finished_.push_back(std::this_thread::get_id());
        }
        self.threadFinished_.notify_all();
    });
}

// Joins the threads that have already returned so the list doesn't grow without bound.
void DetachedThreads::reap() {
    std::list<std::thread> done;
    {
        const std::lock_guard lock(mutex_);
        for (const std::thread::id id : finished_) {
            const auto it = std::find_if(running_.begin(), running_.end(),
                                         [id](const std::thread& t) { return t.get_id() == id; });
            if (it != running_.end()) {
                done.splice(done.end(), running_, it);
            }
        }
        finished_.clear();
    }
    for (std::thread& t : done) {
        t.join();
    }
}

std::size_t DetachedThreads::unfinished() {
    DetachedThreads& self = shared();
    const std::lock_guard lock(self.mutex_);
    const std::size_t running = self.running_.size();
    const std::size_t finished = self.finished_.size();
    return running > finished ? running - finished : 0;
}

// REQUIRES: mutex_ is held.
bool DetachedThreads::allFinished() const {
    return running_.size() <= finished_.size();
}

// A worker may be waiting for the main thread (a blocking performOnMainThread, a task's
// watchdog), so the main thread keeps handling events until every worker has returned.
void DetachedThreads::serveEventsUntilAllFinished() {
    std::unique_lock lock(mutex_);
    while (!allFinished()) {
        lock.unlock();
        QCoreApplication::processEvents();
        lock.lock();
        threadFinished_.wait_for(lock, std::chrono::milliseconds(10),
                                 [this] { return allFinished(); });
    }
}

void DetachedThreads::joinAll() {
    DetachedThreads& self = shared();
    const QCoreApplication* app = QCoreApplication::instance();
    if (app != nullptr && QThread::currentThread() == app->thread()) {
        for (;;) {
            self.serveEventsUntilAllFinished();
            self.reap();
            const std::lock_guard lock(self.mutex_);
            if (self.running_.empty()) {
                return;
            }
        }
    }
    for (;;) {
        std::list<std::thread> all;
        {
            const std::lock_guard lock(self.mutex_);
            if (self.running_.empty()) {
                self.finished_.clear();
                return;
            }
            all.swap(self.running_);
        }
        for (std::thread& t : all) {
            if (t.get_id() != std::this_thread::get_id()) {
                t.join();
            } else {
                t.detach();
            }
        }
    }
}
