#include "QVTask.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QFile>
#include <cerrno>
#include <system_error>
#include <thread>
#include <vector>

#include "QVException.h"
#include "SystemError.h"

extern char** environ;

namespace {

constexpr qsizetype kReadChunk = 64 * 1024;

[[noreturn]] void throwLaunchError(const QString& path, const char* step, int error) {
    throw QVException(QStringLiteral("QVTaskLaunchException"),
                      QStringLiteral("%1 failed for %2: %3")
                          .arg(QLatin1StringView(step), path, SystemError::text(error)));
}

// posix_spawn's file actions and attributes, destroyed on every path out of launch().
struct SpawnSetup {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;

    SpawnSetup() {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
    }
    ~SpawnSetup() {
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&actions);
    }
    SpawnSetup(const SpawnSetup&) = delete;
    SpawnSetup& operator=(const SpawnSetup&) = delete;
};

// The child starts with no blocked signals and default handlers for the ones a parent may
// have changed, so terminate() and a closed reader behave the same whoever launched it.
int resetSignals(posix_spawnattr_t& attributes) {
    sigset_t empty;
    sigemptyset(&empty);
    sigset_t defaults;
    sigemptyset(&defaults);
    for (const int signal : {SIGPIPE, SIGTERM, SIGINT, SIGHUP, SIGCHLD}) {
        sigaddset(&defaults, signal);
    }
    if (const int rc = posix_spawnattr_setsigmask(&attributes, &empty); rc != 0) {
        return rc;
    }
    if (const int rc = posix_spawnattr_setsigdefault(&attributes, &defaults); rc != 0) {
        return rc;
    }
    return posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
}

std::vector<char*> pointersTo(std::vector<QByteArray>& strings) {
    std::vector<char*> pointers;
    pointers.reserve(strings.size() + 1);
    for (QByteArray& string : strings) {
        pointers.push_back(string.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

void QVTask::ReadEnd::open(Descriptor fd) {
    const std::lock_guard lock(mutex_);
    fd_ = std::move(fd);
    closed_ = false;
}

QByteArray QVTask::ReadEnd::read() {
    std::unique_lock lock(mutex_);
    if (closed_ || fd_.get() < 0) {
        return {};
    }
    const int fd = fd_.get();
    ++readers_;
    lock.unlock();

    QByteArray buffer(kReadChunk, Qt::Uninitialized);
    ssize_t count = 0;
    do {
        count = ::read(fd, buffer.data(), buffer.size());
    } while (count < 0 && errno == EINTR);
    const int error = errno;

    lock.lock();
    --readers_;
    if (closed_ && readers_ == 0) {
        fd_.reset();
    }
    if (count < 0) {
        throw QVException(QStringLiteral("QVTaskReadException"), SystemError::text(error));
    }
    buffer.truncate(count);
    return buffer;
}

void QVTask::ReadEnd::close() {
    const std::lock_guard lock(mutex_);
    closed_ = true;
    if (readers_ == 0) {
        fd_.reset();
    }
}

// ---- QVTask ----

QVTask::QVTask(const Setup& setup)
    : launchPath_(setup.launchPath),
      arguments_(setup.arguments),
      environment_(setup.environment),
      stdin_(setup.input),
      stdout_(setup.output),
      stderr_(setup.error) {}

QVTask::~QVTask() {
    const std::lock_guard lock(mutex_);
    if (pid_ == 0 || reaped_) {
        return;
    }
    peekExitLocked();
    reapIfUnwatchedLocked();
    if (reaped_) {
        return;
    }
    // Nobody else can reach this child any more; a waiter thread collects it when it ends.
    std::thread([pid = pid_] {
        while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
        }
    }).detach();
}

QString QVTask::launchPath() const {
    return launchPath_;
}

// Pipes are close-on-exec from birth and kept above 2, so no dup2 in the child can clobber
// another stream's pipe when the parent runs with a standard stream closed.
QVTask::Pipe QVTask::makePipe() {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        throwLaunchError(QString(), "pipe", errno);
    }
    Pipe pipe{Descriptor(fds[0]), Descriptor(fds[1])};
    for (Descriptor* end : {&pipe.read, &pipe.write}) {
        if (end->get() > STDERR_FILENO) {
            continue;
        }
        const int moved = ::fcntl(end->get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        if (moved < 0) {
            throwLaunchError(QString(), "fcntl", errno);
        }
        end->reset(moved);
    }
    return pipe;
}

void QVTask::launch() {
    const std::lock_guard lock(mutex_);
    if (pid_ != 0) {
        throw QVException(QStringLiteral("QVTaskLaunchException"),
                          QStringLiteral("%1 was already launched").arg(launchPath_));
    }
    SpawnSetup setup;
    if (const int rc = resetSignals(setup.attributes); rc != 0) {
        throwLaunchError(launchPath_, "posix_spawnattr", rc);
    }

    // Each stream: the child's end is dup2'ed into place; the parent keeps the other end.
    struct Stream {
        Channel channel;
        int target;
        Pipe pipe;
    };
    Stream streams[] = {
        {stdin_, STDIN_FILENO, {}}, {stdout_, STDOUT_FILENO, {}}, {stderr_, STDERR_FILENO, {}}};
    for (Stream& stream : streams) {
        const bool isInput = stream.target == STDIN_FILENO;
        int rc = 0;
        if (stream.channel == Channel::NullDevice) {
            rc = posix_spawn_file_actions_addopen(&setup.actions, stream.target, "/dev/null",
                                                  isInput ? O_RDONLY : O_WRONLY, 0);
        } else if (stream.channel == Channel::Pipe) {
            stream.pipe = makePipe();
            const int childEnd = isInput ? stream.pipe.read.get() : stream.pipe.write.get();
            rc = posix_spawn_file_actions_adddup2(&setup.actions, childEnd, stream.target);
        }
        if (rc != 0) {
            throwLaunchError(launchPath_, "posix_spawn_file_actions", rc);
        }
    }
#if defined(__GLIBC__) && (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 34))
    // Descriptors some library opened without close-on-exec stay out of the child too.
    posix_spawn_file_actions_addclosefrom_np(&setup.actions, STDERR_FILENO + 1);
#endif

    const QByteArray path = QFile::encodeName(launchPath_);
    std::vector<QByteArray> argumentBytes{path};
    for (const QString& argument : arguments_) {
        argumentBytes.push_back(QFile::encodeName(argument));
    }
    std::vector<char*> argv = pointersTo(argumentBytes);

    std::vector<QByteArray> environmentBytes;
    std::vector<char*> envp;
    if (environment_) {
        for (auto it = environment_->cbegin(); it != environment_->cend(); ++it) {
            environmentBytes.push_back(it.key().toUtf8() + '=' + it.value().toUtf8());
        }
        envp = pointersTo(environmentBytes);
    }

    pid_t pid = 0;
    const int rc = ::posix_spawn(&pid, path.constData(), &setup.actions, &setup.attributes,
                                 argv.data(), environment_ ? envp.data() : environ);
    if (rc != 0) {
        throwLaunchError(launchPath_, "posix_spawn", rc);
    }
    pid_ = pid;
    inputWrite_ = std::move(streams[0].pipe.write);
    output_.open(std::move(streams[1].pipe.read));
    error_.open(std::move(streams[2].pipe.read));
}

QByteArray QVTask::readOutput() {
    return output_.read();
}

QByteArray QVTask::readError() {
    return error_.read();
}

void QVTask::closeOutput() {
    output_.close();
}

void QVTask::closeError() {
    error_.close();
}

bool QVTask::writeInput(const QByteArray& data) {
    qsizetype done = 0;
    while (done < data.size()) {
        if (!inputWrite_.valid())
            return false;
        const ssize_t wrote = ::write(inputWrite_.get(), data.constData() + done,
                                      static_cast<std::size_t>(data.size() - done));
        if (wrote < 0 && errno == EINTR)
            continue;
        if (wrote <= 0)
            return false;
        done += wrote;
    }
    return true;
}

void QVTask::closeInput() {
    inputWrite_.reset();
}

pid_t QVTask::processIdentifier() const {
    const std::lock_guard lock(mutex_);
    return pid_;
}

void QVTask::recordStatus(int& status, int siCode, int siStatus) {
    status = siCode == CLD_EXITED ? siStatus : 128 + siStatus;
}

// Looks without reaping (WNOWAIT): the pid stays ours until reapIfUnwatchedLocked(), so
// terminate() can never signal a stranger that inherited a recycled pid.
bool QVTask::peekExitLocked() {
    if (exited_ || pid_ == 0) {
        return exited_;
    }
    siginfo_t info{};
    int rc = 0;
    do {
        rc = ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT);
    } while (rc < 0 && errno == EINTR);
    if (rc == 0 && info.si_pid == 0) {
        return false;
    }
    if (rc == 0) {
        recordStatus(status_, info.si_code, info.si_status);
    } else {
        reaped_ = true;  // collected behind our back (SIGCHLD ignored); status unknown
    }
    exited_ = true;
    return true;
}

// Reaping while another thread blocks in waitid on the same pid could hand that thread a
// recycled pid, so only the last one out reaps.
void QVTask::reapIfUnwatchedLocked() {
    if (!exited_ || reaped_ || waiters_ > 0) {
        return;
    }
    ::waitpid(pid_, nullptr, WNOHANG);
    reaped_ = true;
}

bool QVTask::isRunning() {
    const std::lock_guard lock(mutex_);
    if (pid_ == 0) {
        return false;
    }
    const bool exited = peekExitLocked();
    reapIfUnwatchedLocked();
    return !exited;
}

void QVTask::terminate() {
    const std::lock_guard lock(mutex_);
    if (pid_ != 0 && !reaped_) {
        ::kill(pid_, SIGTERM);
    }
}

void QVTask::waitUntilExit() {
    std::unique_lock lock(mutex_);
    if (pid_ == 0) {
        return;
    }
    if (!peekExitLocked()) {
        const pid_t pid = pid_;
        ++waiters_;
        lock.unlock();
        siginfo_t info{};
        int rc = 0;
        do {
            rc = ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT);
        } while (rc < 0 && errno == EINTR);
        lock.lock();
        --waiters_;
        if (!exited_ && rc == 0) {
            recordStatus(status_, info.si_code, info.si_status);
        }
        reaped_ = reaped_ || rc != 0;
        exited_ = true;
    }
    reapIfUnwatchedLocked();
}

int QVTask::terminationStatus() const {
    const std::lock_guard lock(mutex_);
    return exited_ ? status_ : -1;
}
