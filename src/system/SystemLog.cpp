#include "SystemLog.h"

#include <syslog.h>

#include <mutex>

namespace {

// The one piece of shared state: the lines of an active capture (tests only).
struct Captured {
    std::mutex mutex;
    int captures = 0;   // guarded by mutex
    QStringList lines;  // guarded by mutex
};

Captured& captured() {
    static Captured instance;
    return instance;
}

}  // namespace

void SystemLog::write(const QString& line) {
    {
        // A test's lines stay out of the real journal.
        Captured& shared = captured();
        const std::lock_guard lock(shared.mutex);
        if (shared.captures > 0) {
            shared.lines << line;
            return;
        }
    }
    ::syslog(LOG_NOTICE, "%s", line.toUtf8().constData());
}

SystemLog::Capture::Capture() {
    Captured& shared = captured();
    const std::lock_guard lock(shared.mutex);
    if (shared.captures++ == 0)
        shared.lines.clear();
}

SystemLog::Capture::~Capture() {
    Captured& shared = captured();
    const std::lock_guard lock(shared.mutex);
    --shared.captures;
}

QStringList SystemLog::Capture::lines() const {
    Captured& shared = captured();
    const std::lock_guard lock(shared.mutex);
    return shared.lines;
}
