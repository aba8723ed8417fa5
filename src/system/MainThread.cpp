#include "MainThread.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QThread>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <utility>

#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#endif

namespace {

// Qt's queue runs a posted call after all its poster did before posting, through locks
// ThreadSanitizer can't see; the checked build is told of that order on the call's own state.
void handingToQt([[maybe_unused]] void* state) {
#if defined(__SANITIZE_THREAD__)
    __tsan_release(state);
#endif
}

void takenFromQt([[maybe_unused]] void* state) {
#if defined(__SANITIZE_THREAD__)
    __tsan_acquire(state);
#endif
}

// One posted call, shared by the poster and the queued call. The poster waits for its end here
// rather than with Qt's blocking call, which leaves its arguments on the poster's stack and
// wakes it through locks ThreadSanitizer can't see, so the checked build took it for a race.
struct PostedCall {
    std::mutex mutex;
    std::condition_variable ended;
    std::function<void()> work;  // guarded by mutex; taken by whoever runs it
    bool over = false;           // guarded by mutex

    void end() {
        {
            const std::lock_guard lock(mutex);
            over = true;
        }
        ended.notify_all();
    }
};

// Held by the queued call alone (it is moved, never copied): when Qt drops a call still queued
// as its receiver goes, the poster waiting for it is let go all the same.
class EndWhenGone {
  public:
    explicit EndWhenGone(std::shared_ptr<PostedCall> call) : call_(std::move(call)) {}
    EndWhenGone(EndWhenGone&&) noexcept = default;
    EndWhenGone& operator=(EndWhenGone&&) = delete;
    ~EndWhenGone() {
        if (!call_)
            return;
        takenFromQt(call_.get());
        call_->end();
    }

    std::function<void()> takeWork() const {
        takenFromQt(call_.get());
        const std::lock_guard lock(call_->mutex);
        return std::exchange(call_->work, nullptr);
    }

  private:
    std::shared_ptr<PostedCall> call_;
};

}  // namespace

bool MainThread::isMainThread() {
    const QCoreApplication* app = QCoreApplication::instance();
    return app == nullptr || QThread::currentThread() == app->thread();
}

void MainThread::performOnMainThread(std::function<void()> fn, bool wait) {
    if (isMainThread()) {
        fn();
        return;
    }
    const auto call = std::make_shared<PostedCall>();
    call->work = std::move(fn);
    handingToQt(call.get());
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [guard = EndWhenGone(call)] {
            if (const std::function<void()> work = guard.takeWork())
                work();
        },
        Qt::QueuedConnection);
    if (!wait)
        return;
    std::unique_lock lock(call->mutex);
    call->ended.wait(lock, [&call] { return call->over; });
}
