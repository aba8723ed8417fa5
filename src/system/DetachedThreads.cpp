#include "DetachedThreads.h"

#include "WorkerThreads.h"

WorkerThreads& DetachedThreads::shared() {
    static WorkerThreads instance;  // joined at exit rather than torn down mid-work
    return instance;
}

void DetachedThreads::start(std::function<void()> fn) {
    shared().start(std::move(fn));
}

std::size_t DetachedThreads::unfinished() {
    return shared().unfinished();
}

void DetachedThreads::joinAll() {
    shared().joinAll();
}
