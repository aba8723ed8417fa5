#include "MainThread.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QThread>

bool MainThread::isMainThread() {
    const QCoreApplication* app = QCoreApplication::instance();
    return app == nullptr || QThread::currentThread() == app->thread();
}

void MainThread::performOnMainThread(std::function<void()> fn, bool wait) {
    if (isMainThread()) {
        fn();
        return;
    }
    QMetaObject::invokeMethod(QCoreApplication::instance(), std::move(fn),
                              wait ? Qt::BlockingQueuedConnection : Qt::QueuedConnection);
}
