#pragma once
// Our crash handler: on SIGSEGV, SIGBUS, SIGILL, SIGFPE or SIGABRT it writes
// FOLDER/NAME_YYYY-MM-DD-HHMMSS.crash (the signal and a backtrace) using only what is safe
// inside a signal handler, then lets the signal end the process as it would have. Installed
// once per process, from the main thread, before other threads start.

#include <QString>

class CrashHandler {
  public:
    /// Makes the folder now (the handler can't) and installs the handler; false when the
    /// folder can't be made.
    static bool install(const QString& folder, const QString& appName);
};
