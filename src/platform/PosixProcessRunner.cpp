#include "PosixProcessRunner.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "QVLog.h"
#include "QVTask.h"

namespace {

using SteadyClock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// A child asked to stop gets this long before it is killed.
constexpr auto kTerminateGrace = 2s;
// Once the child has ended, a descendant may still hold its pipes open.
constexpr auto kDrainGrace = 2s;
constexpr auto kLongestPause = 50ms;

// What one reading thread has collected; shared, so a reader stuck on a pipe held open by a
// descendant can be left behind without dangling.
struct Capture {
    std::mutex mutex;
    std::condition_variable ended;
    QByteArray data;    // guarded by mutex
    bool done = false;  // guarded by mutex
};

std::thread readInto(std::shared_ptr<QVTask> task, std::shared_ptr<Capture> capture,
                     bool errorStream) {
    return std::thread([task = std::move(task), capture = std::move(capture), errorStream] {
        QByteArray data;
        try {
            for (QByteArray chunk = errorStream ? task->readError() : task->readOutput();
                 !chunk.isEmpty(); chunk = errorStream ? task->readError() : task->readOutput()) {
                data += chunk;
            }
        } catch (const std::exception& ex) {
            QVLog::appendLog(u"PosixProcessRunner: reading %@ failed: %@", task->launchPath(),
                             QString::fromLocal8Bit(ex.what()));
        }
        const std::lock_guard lock(capture->mutex);
        capture->data = std::move(data);
        capture->done = true;
        capture->ended.notify_all();
    });
}

// Joins the reader when it finished by the deadline, else leaves it to end on its own.
QByteArray collect(std::thread& reader, Capture& capture, SteadyClock::time_point deadline) {
    std::unique_lock lock(capture.mutex);
    if (!capture.ended.wait_until(lock, deadline, [&] { return capture.done; })) {
        reader.detach();
        return {};
    }
    lock.unlock();
    reader.join();
    return capture.data;
}

// True once the child has ended, false when the deadline came first.
// Only the thread running the child calls this, so only it reaps the child.
bool waitForExit(QVTask& task, SteadyClock::time_point deadline) {
    auto pause = std::chrono::duration_cast<SteadyClock::duration>(1ms);
    while (task.isRunning()) {
        const auto now = SteadyClock::now();
        if (now >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::min(pause, deadline - now));
        pause = std::min<SteadyClock::duration>(pause * 2, kLongestPause);
    }
    return true;
}

void stop(QVTask& task) {
    task.terminate();
    if (!waitForExit(task, SteadyClock::now() + kTerminateGrace)) {
        // Still running after waitForExit said so, and nobody else reaps it: the pid is ours.
        ::kill(task.processIdentifier(), SIGKILL);
    }
    task.waitUntilExit();
}

std::shared_ptr<QVTask> makeTask(const QString& path, const QStringList& arguments,
                                 QVTask::Channel output) {
    return std::make_shared<QVTask>(ChildProcess::Setup{
        path, arguments, std::nullopt, QVTask::Channel::NullDevice, output, output});
}

bool launch(QVTask& task) {
    try {
        task.launch();
        return true;
    } catch (const std::exception& ex) {
        QVLog::appendLog(u"PosixProcessRunner: %@", QString::fromLocal8Bit(ex.what()));
        return false;
    }
}

// The launch path for program: itself when it names a path, else where the system keeps it;
// empty when not found.
QString resolve(const QString& program) {
    if (program.contains(u'/')) {
        return program;
    }
    return program.isEmpty() ? QString() : PosixProcessRunner::find(program);
}

}  // namespace

ProcessResult PosixProcessRunner::run(const QString& program, const QStringList& arguments,
                                      double timeoutSeconds) {
    ProcessResult result;
    const QString path = resolve(program);
    if (path.isEmpty()) {
        QVLog::appendLog(u"PosixProcessRunner: %@ is not installed", program);
        return result;
    }
    const auto task = makeTask(path, arguments, QVTask::Channel::Pipe);
    if (!launch(*task)) {
        return result;
    }
    result.started = true;
    const auto output = std::make_shared<Capture>();
    const auto errors = std::make_shared<Capture>();
    std::thread outputReader = readInto(task, output, false);
    std::thread errorReader = readInto(task, errors, true);

    if (timeoutSeconds <= 0) {
        task->waitUntilExit();
    } else {
        const auto limit = std::chrono::duration_cast<SteadyClock::duration>(
            std::chrono::duration<double>(timeoutSeconds));
        if (!waitForExit(*task, SteadyClock::now() + limit)) {
            QVLog::appendLog(u"PosixProcessRunner: %@ timed out after %@ s; terminating", path,
                             QString::number(timeoutSeconds));
            result.timedOut = true;
            stop(*task);
        }
    }
    result.exitCode = task->terminationStatus();

    const auto drained = SteadyClock::now() + kDrainGrace;
    result.output = collect(outputReader, *output, drained);
    const QByteArray errorText = collect(errorReader, *errors, drained);
    if (result.output.isEmpty()) {
        result.output = errorText;
    }
    return result;
}

bool PosixProcessRunner::start(const QString& program, const QStringList& arguments) {
    const QString path = resolve(program);
    if (path.isEmpty()) {
        QVLog::appendLog(u"PosixProcessRunner: %@ is not installed", program);
        return false;
    }
    // The task reaps its child in the background once it is dropped.
    return launch(*makeTask(path, arguments, QVTask::Channel::NullDevice));
}

std::shared_ptr<ChildProcess> PosixProcessRunner::makeChild(const ChildProcess::Setup& setup) {
    return std::make_shared<QVTask>(setup);
}

bool PosixProcessRunner::isExecutable(const QString& path) const {
    if (path.isEmpty()) {
        return false;
    }
    const QByteArray name = QFile::encodeName(path);
    struct stat info {};
    return ::stat(name.constData(), &info) == 0 && S_ISREG(info.st_mode) &&
           ::access(name.constData(), X_OK) == 0;
}

QString PosixProcessRunner::find(const QString& name) {
    const QString found = QStandardPaths::findExecutable(name);
    if (!found.isEmpty()) {
        return found;
    }
    // Administrators' tools live in sbin, which a user's PATH may lack.
    return QStandardPaths::findExecutable(
        name, {QStringLiteral("/usr/sbin"), QStringLiteral("/usr/bin"), QStringLiteral("/sbin"),
               QStringLiteral("/bin")});
}
