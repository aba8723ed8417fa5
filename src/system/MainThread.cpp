#include "MainThread.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QThread>

// Qt's queue of posted calls is one lock: a call runs after everything its poster did before
// posting, and a waiting poster goes on after the call. ThreadSanitizer can't see inside Qt, so
// the checked build is told of that order here, through one address standing for that lock.
#if defined(__SANITIZE_THREAD__)
extern "C" void __tsan_acquire(void* address);
extern "C" void __tsan_release(void* address);

namespace {

const char kPostedCalls = 0;

void released() {
    __tsan_release(const_cast<char*>(&kPostedCalls));
}

void acquired() {
    __tsan_acquire(const_cast<char*>(&kPostedCalls));
}

}  // namespace
#else
namespace {

void released() {}
void acquired() {}

}  // namespace
#endif

bool MainThread::isMainThread() {
    const QCoreApplication* app = QCoreApplication::instance();
    return app == nullptr || QThread::currentThread() == app->thread();
}

void MainThread::performOnMainThread(std::function<void()> fn, bool wait) {
    if (isMainThread()) {
        fn();
        return;
    }
    released();
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [fn = std::move(fn)] {
            acquired();
            fn();
            released();
        },
        wait ? Qt::BlockingQueuedConnection : Qt::QueuedConnection);
    if (wait)
        acquired();
}
