#pragma once
// The process's own tracked threads, for the low-level helpers that have no owner to hand them
// a WorkerThreads (the task runner's readers); joined before the process exits.

#include <functional>

class WorkerThreads;

class DetachedThreads {
  public:
    static void start(std::function<void()> fn);
    static std::size_t unfinished();
    static void joinAll();
    static WorkerThreads& shared();
};
