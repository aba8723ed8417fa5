#pragma once
// Runs the main thread's event loop while a test waits for something to happen.

#include <functional>

/// Runs the event loop until condition holds; false after timeoutMs.
bool waitUntil(const std::function<bool()>& condition, int timeoutMs = 20000);
