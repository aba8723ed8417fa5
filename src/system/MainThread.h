#pragma once
// The "main thread" is the thread running the Qt event loop; interface work from worker
// threads is handed to it here.

#include <functional>

class MainThread {
  public:
    /// True on the thread of the QCoreApplication (or when none exists: then every
    /// thread counts as main and work runs inline).
    static bool isMainThread();

    /// Runs fn inline when already on the main thread; otherwise posts it to the event
    /// loop, blocking until it has run when `wait` is true.
    static void performOnMainThread(std::function<void()> fn, bool wait);
};
