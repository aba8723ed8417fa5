#include "WaitUntil.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>

bool waitUntil(const std::function<bool()>& condition, int timeoutMs) {
    const QDeadlineTimer deadline(timeoutMs);
    while (!condition()) {
        if (deadline.hasExpired()) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        QThread::msleep(1);
    }
    return true;
}
