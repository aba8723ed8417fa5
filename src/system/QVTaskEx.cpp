#include "QVTaskEx.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <thread>
#include <utility>

#include "DetachedThreads.h"
#include "MainThread.h"
#include "ProcessRunner.h"
#include "QVException.h"
#include "QVLog.h"

namespace {

std::atomic<ProcessRunner*> installedRunner{nullptr};

}  // namespace

// One per timed run. Cancelling wakes the sleeping watchdog, so a finished run leaves no
// thread behind for the process to wait on at exit.
struct QVTaskEx::Watchdog {
    std::mutex mutex;
    std::condition_variable wake;
    bool cancelled = false;  // guarded by mutex

    void cancel() {
        {
            const std::lock_guard lock(mutex);
            cancelled = true;
        }
        wake.notify_all();
    }

    /// False when cancelled before the time was up.
    bool sleepFor(int seconds) {
        std::unique_lock lock(mutex);
        return !wake.wait_for(lock, std::chrono::seconds(seconds), [this] { return cancelled; });
    }
};

// ---- TaskSlot ----

void QVTaskEx::TaskSlot::set(std::shared_ptr<ChildProcess> task) {
    const std::lock_guard lock(mutex_);
    task_ = std::move(task);
}

std::shared_ptr<ChildProcess> QVTaskEx::TaskSlot::task() const {
    const std::lock_guard lock(mutex_);
    return task_;
}

std::shared_ptr<ChildProcess> QVTaskEx::TaskSlot::take() {
    const std::lock_guard lock(mutex_);
    return std::move(task_);
}

// ---- helpers ----

std::shared_ptr<QVTaskEx> QVTaskEx::create() {
    return std::make_shared<QVTaskEx>(Token{});
}

QVTaskEx::~QVTaskEx() = default;

ProcessRunner* QVTaskEx::install(ProcessRunner* runner) {
    return installedRunner.exchange(runner);
}

bool QVTaskEx::isUsableLaunchPath(const QString& path) {
    const ProcessRunner* runner = installedRunner.load();
    return runner != nullptr && runner->isExecutable(path);
}

bool QVTaskEx::checkLaunchPath(const QString& path) {
    if (isUsableLaunchPath(path)) {
        return true;
    }
    QVLog::appendLogAndPrint(u"Error: %@ is not executable", path);
    return false;
}

QString QVTaskEx::decode(const std::optional<QByteArray>& data, Encoding encoding) {
    if (!data || data->isEmpty()) {
        return QStringLiteral("");
    }
    if (encoding == Encoding::UTF8) {
        return QString::fromUtf8(*data);
    }
    return QString::fromLatin1(*data);
}

// Null only when no runner was installed; the class-level runs check the path (and so the
// runner) first.
std::shared_ptr<ChildProcess> QVTaskEx::makeTask(const QString& path, const QStringList& arguments,
                                                 ChildProcess::Channel output,
                                                 ChildProcess::Channel error,
                                                 ChildProcess::Channel input,
                                                 const std::optional<Environment>& environment) {
    ProcessRunner* runner = installedRunner.load();
    if (runner == nullptr) {
        return nullptr;
    }
    return runner->makeChild({path, arguments, environment, input, output, error});
}

// Drains the output first and turns to the errors only when the output gives nothing, round
// and round until both have ended.
QByteArray QVTaskEx::captureOutput(ChildProcess& task, bool logOutput) {
    // Errors drain on a thread of their own, so a tool that writes much to standard error
    // before closing its output can't stall on a full pipe while we wait on the output.
    QByteArray errors;
    std::exception_ptr errorFailure;
    std::thread errorReader([&task, &errors, &errorFailure] {
        try {
            for (QByteArray piece = task.readError(); !piece.isEmpty(); piece = task.readError()) {
                errors += piece;
            }
        } catch (...) {
            errorFailure = std::current_exception();
        }
    });
    QByteArray output;
    std::exception_ptr outputFailure;
    try {
        for (QByteArray piece = logOutput ? task.readOutput() : QByteArray(); !piece.isEmpty();
             piece = task.readOutput()) {
            output += piece;
        }
    } catch (...) {
        outputFailure = std::current_exception();
    }
    errorReader.join();
    for (const std::exception_ptr& failure : {outputFailure, errorFailure}) {
        if (failure) {
            std::rethrow_exception(failure);
        }
    }
    return output.isEmpty() && !errors.isEmpty() ? errors : output;
}

// ---- class-level runs ----

bool QVTaskEx::runTask(const QString& path, const QStringList& arguments, TaskSlot* taskSlot) {
    if (!checkLaunchPath(path)) {
        return false;
    }
    const auto task = makeTask(path, arguments, ChildProcess::Channel::NullDevice,
                               ChildProcess::Channel::NullDevice);
    if (taskSlot != nullptr) {
        taskSlot->set(task);
    }
    try {
        task->launch();
        task->waitUntilExit();
        return true;
    } catch (const std::exception& ex) {
        QVLog::appendLog(u"Exception running task %@: %@", path, QVException::reasonOf(ex));
        return false;
    }
}

std::shared_ptr<ChildProcess> QVTaskEx::runTaskAndReturn(const QString& path,
                                                         const QStringList& arguments) {
    if (!checkLaunchPath(path)) {
        return nullptr;
    }
    auto task = makeTask(path, arguments, ChildProcess::Channel::NullDevice,
                         ChildProcess::Channel::NullDevice);
    try {
        task->launch();
        return task;
    } catch (const std::exception& ex) {
        QVLog::appendLog(u"Exception running task %@: %@", path, QVException::reasonOf(ex));
        return nullptr;
    }
}

QString QVTaskEx::stringFromTask(const QString& path, const QStringList& arguments,
                                 TaskSlot* taskSlot) {
    return stringFromTask(path, arguments, Encoding::ASCII, taskSlot);
}

QString QVTaskEx::stringFromTask(const QString& path, const QStringList& arguments,
                                 Encoding encoding, TaskSlot* taskSlot) {
    return decode(dataFromTask(path, arguments, taskSlot), encoding);
}

QString QVTaskEx::stringFromTask(const QString& path, const QStringList& arguments,
                                 double timeout) {
    return stringFromTask(path, arguments, Encoding::ASCII, timeout);
}

QString QVTaskEx::stringFromTask(const QString& path, const QStringList& arguments,
                                 Encoding encoding, double timeout) {
    return decode(dataFromTask(path, arguments, timeout), encoding);
}

std::optional<QByteArray> QVTaskEx::dataFromTask(const QString& path, const QStringList& arguments,
                                                 TaskSlot* taskSlot,
                                                 const std::optional<Environment>& environment,
                                                 bool logOutput) {
    if (!checkLaunchPath(path)) {
        return std::nullopt;
    }
    const auto task = makeTask(
        path, arguments, logOutput ? ChildProcess::Channel::Pipe : ChildProcess::Channel::Inherit,
        ChildProcess::Channel::Pipe, ChildProcess::Channel::Pipe, environment);
    if (taskSlot != nullptr) {
        taskSlot->set(task);
    }
    std::optional<QByteArray> result;
    try {
        task->launch();
        result = captureOutput(*task, logOutput);
    } catch (const std::exception& ex) {
        QVLog::appendLogAndPrint(u"Exception running task %@: %@", path, QVException::reasonOf(ex));
    }
    task->closeOutput();
    task->closeError();
    if (taskSlot != nullptr) {
        taskSlot->clear();
    }
    return result;
}

int QVTaskEx::terminationCodeFromTask(const QString& path, const QStringList& arguments,
                                      TaskSlot* taskSlot) {
    if (!checkLaunchPath(path)) {
        return -1;
    }
    const auto task = makeTask(path, arguments, ChildProcess::Channel::NullDevice,
                               ChildProcess::Channel::NullDevice);
    if (taskSlot != nullptr) {
        taskSlot->set(task);
    }
    task->launch();
    task->waitUntilExit();
    return task->terminationStatus();
}

bool QVTaskEx::runTask(const QString& path, const QStringList& arguments, double timeout) {
    return create()->runTaskWithTimeout(path, arguments, timeout);
}

std::optional<QByteArray> QVTaskEx::dataFromTask(const QString& path, const QStringList& arguments,
                                                 double timeout) {
    return create()->dataFromTaskWithTimeout(path, arguments, timeout);
}

int QVTaskEx::terminationCodeFromTask(const QString& path, const QStringList& arguments,
                                      double timeout) {
    return create()->terminationCodeFromTaskWithTimeout(path, arguments, timeout);
}

// ---- timed runs ----

bool QVTaskEx::runTaskWithTimeout(const QString& path, const QStringList& arguments,
                                  double timeout) {
    bool result = false;
    runTimed(timeout, [&](TaskSlot* slot) { result = runTask(path, arguments, slot); });
    return result;
}

std::optional<QByteArray> QVTaskEx::dataFromTaskWithTimeout(const QString& path,
                                                            const QStringList& arguments,
                                                            double timeout) {
    std::optional<QByteArray> result;
    runTimed(timeout, [&](TaskSlot* slot) { result = dataFromTask(path, arguments, slot); });
    return result;
}

int QVTaskEx::terminationCodeFromTaskWithTimeout(const QString& path, const QStringList& arguments,
                                                 double timeout) {
    int result = -1;
    runTimed(timeout,
             [&](TaskSlot* slot) { result = terminationCodeFromTask(path, arguments, slot); });
    return result;
}

void QVTaskEx::runTimed(double timeout, const std::function<void(TaskSlot*)>& run) {
    // Whole seconds only: 0.9 fires at once. NaN and negatives count as 0.
    const int seconds = timeout >= 1.0 ? static_cast<int>(std::min<double>(timeout, INT_MAX)) : 0;
    const auto watchdog = std::make_shared<Watchdog>();
    DetachedThreads::start(
        [self = shared_from_this(), watchdog, seconds] { self->watch(watchdog, seconds); });

    // Ends the watch however the run leaves (terminationCodeFromTask may throw).
    struct EndOfRun {
        QVTaskEx& owner;
        Watchdog& watchdog;
        ~EndOfRun() {
            owner.theTask_.clear();
            watchdog.cancel();
        }
    };
    theTask_.clear();
    const EndOfRun end{*this, *watchdog};
    run(&theTask_);
}

void QVTaskEx::watch(const std::shared_ptr<Watchdog>& watchdog, int seconds) {
    try {
        if (!watchdog->sleepFor(seconds)) {
            return;
        }
        MainThread::performOnMainThread([this] { timeout(); }, true);
    } catch (const std::exception& ex) {
        QVException::logException(ex, "-[QVTaskEx setupTimeout:]");
    }
}

void QVTaskEx::setupTimeout(int seconds) {
    watch(std::make_shared<Watchdog>(), seconds);
}

void QVTaskEx::timeout() {
    const auto task = theTask_.task();
    if (!task || !task->isRunning()) {
        return;
    }
    QVLog::appendLogAndPrint(u"Task %@ timed out. Terminating...", task->launchPath());
    task->terminate();
}

// ---- asynchronous runs ----

void QVTaskEx::asyncDataFromTask(const QString& path, const QStringList& arguments,
                                 Delegate delegate, const QVariant& object,
                                 const std::optional<Environment>& environment) {
    Delegate previousDelegate;  // released outside the lock: its destructor may call back in
    QVariant previousObject;
    {
        const std::lock_guard lock(delegateMutex_);
        previousDelegate = std::exchange(delegate_, std::move(delegate));
        previousObject = std::exchange(object_, object);
    }
    auto task =
        makeTask(path, arguments, ChildProcess::Channel::Pipe, ChildProcess::Channel::NullDevice,
                 ChildProcess::Channel::Inherit, environment);
    theTask_.set(task);
    DetachedThreads::start(
        [self = shared_from_this(), task = std::move(task)] { self->runAsync(task); });
}

void QVTaskEx::launchAsyncTask() {
    runAsync(theTask_.task());
}

bool QVTaskEx::isCurrentAsyncTask(const std::shared_ptr<ChildProcess>& task) const {
    return task != nullptr && theTask_.task() == task;
}

void QVTaskEx::runAsync(const std::shared_ptr<ChildProcess>& task) {
    // Terminated or replaced before this thread got going: same as never having had a task.
    if (!isCurrentAsyncTask(task)) {
        QVLog::appendLogAndPrint(u"Unable to launch async task - no task set");
        return;
    }
    if (!isUsableLaunchPath(task->launchPath())) {
        QVLog::appendLog(u"Unable to launch async task - task does not exist or is not executable");
        return;
    }
    try {
        task->launch();
        for (;;) {
            const QByteArray piece = task->readOutput();
            // Stopped or replaced from outside: the pieces belong to nobody any more.
            if (!isCurrentAsyncTask(task)) {
                task->closeOutput();
                return;
            }
            asyncTaskReturnData(piece);
            if (piece.isEmpty()) {
                return;
            }
        }
    } catch (const std::exception& ex) {
        QVException::logException(ex, "-[QVTaskEx launchAsyncTask]");
    }
}

void QVTaskEx::asyncTaskReturnData(const QByteArray& data) {
    Delegate delegate;
    QVariant object;
    {
        const std::lock_guard lock(delegateMutex_);
        delegate = delegate_;
        object = object_;
    }
    if (delegate) {
        delegate(data, *this, object);
    }
    if (data.isEmpty()) {
        terminateAsyncTask();
    }
}

void QVTaskEx::terminateAsyncTask() {
    const auto task = theTask_.take();
    if (task) {
        task->closeOutput();
    }
    Delegate delegate;  // released outside the lock: its destructor may call back in
    QVariant object;
    {
        const std::lock_guard lock(delegateMutex_);
        delegate = std::exchange(delegate_, nullptr);
        object = std::exchange(object_, QVariant());
    }
    if (task && task->isRunning()) {
        task->terminate();
    }
}
