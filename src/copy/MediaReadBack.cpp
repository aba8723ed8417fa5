#include "MediaReadBack.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <limits>

#include "QVException.h"
#include "SystemError.h"

namespace {

using Clock = std::chrono::steady_clock;

// Small files wait this long at most for others to share their flush.
constexpr auto kBatchWait = std::chrono::milliseconds(300);
constexpr std::size_t kReadSize = 1 << 20;
constexpr std::uint64_t kToTheEnd = std::numeric_limits<std::uint64_t>::max();
constexpr std::size_t kReadWindow = 32;

QString problem(const char* what, int code) {
    return QLatin1String(what) + SystemError::text(code);
}

}  // namespace

struct MediaReadBack::Check {
    QList<QByteArray> copies;
    std::uint64_t size = 0;
    bool follow = false;
    Clock::time_point queued;
    // The rest is guarded by the reader's mutex_.
    std::uint64_t written = 0;
    bool completed = false;
    bool abandoned = false;
    std::vector<bool> writeFailed;
    Settled settled;
    std::vector<Outcome> outcomes;
    std::size_t pending = 0;  // destinations not done with it
};

struct MediaReadBack::Worker {
    std::deque<std::shared_ptr<Check>> queue;  // guarded by the reader's mutex_
    std::vector<char> buffer = std::vector<char>(kReadSize);
};

MediaReadBack::MediaReadBack(FileLayer& layer, DigestContext::Kind kind,
                             const QList<QByteArray>& destinationRoots, Progress progress)
    : layer_(layer), kind_(kind), progress_(std::move(progress)) {
    for (const QByteArray& root : destinationRoots) {
        // Opened before anything is written, so a flush reports every write-back error since.
        const int fd = layer_.openRead(root);
        rootFds_.push_back(fd);
        fileFlush_.push_back(fd < 0 || layer_.needsFileFlush(fd));
        workers_.push_back(std::make_unique<Worker>());
    }
    for (std::size_t d = 0; d < workers_.size(); ++d)
        threads_.emplace_back([this, d] { run(d); });
}

MediaReadBack::~MediaReadBack() {
    cancel();
    for (std::thread& thread : threads_)
        thread.join();
    for (const int fd : rootFds_) {
        if (fd >= 0)
            layer_.close(fd);
    }
}

std::shared_ptr<MediaReadBack::Check> MediaReadBack::begin(const QList<QByteArray>& copies,
                                                           std::uint64_t expectedSize) {
    auto check = std::make_shared<Check>();
    check->copies = copies;
    check->copies.resize(qsizetype(workers_.size()));
    check->size = expectedSize;
    check->follow = expectedSize >= kFollowSize;
    check->outcomes.resize(workers_.size());
    check->writeFailed.assign(workers_.size(), false);
    check->pending = workers_.size();
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] {
        return stopping_ || unsettled_ == 0 ||
               (unsettled_ < kMaxUnsettled && unsettledBytes_ < kMaxUnsettledBytes);
    });
    if (stopping_) {
        check->abandoned = true;
        return check;
    }
    check->queued = Clock::now();
    ++unsettled_;
    unsettledBytes_ += expectedSize;
    for (const auto& worker : workers_)
        worker->queue.push_back(check);
    changed_.notify_all();
    return check;
}

void MediaReadBack::written(Check& check, std::uint64_t bytes) {
    if (!check.follow)
        return;
    {
        const std::lock_guard lock(mutex_);
        check.written = bytes;
    }
    changed_.notify_all();
}

void MediaReadBack::complete(Check& check, const std::vector<bool>& writeFailed, Settled settled) {
    std::unique_lock lock(mutex_);
    if (check.abandoned)
        return;
    check.completed = true;
    check.writeFailed = writeFailed;
    check.writeFailed.resize(workers_.size(), true);
    check.settled = std::move(settled);
    changed_.notify_all();
    if (check.pending == 0)
        settle(check, lock);
}

void MediaReadBack::abandon(Check& check) {
    std::unique_lock lock(mutex_);
    if (check.abandoned || check.completed)
        return;
    check.abandoned = true;
    changed_.notify_all();
    if (check.pending == 0)
        settle(check, lock);
}

// Every destination is done with a file that was completed or abandoned: its callback runs
// (outside the lock), and only then does it stop counting, so drain never returns before it.
void MediaReadBack::settle(Check& check, std::unique_lock<std::mutex>& lock) {
    if (check.completed && !check.abandoned && !stopping_ && check.settled) {
        const Settled settled = std::move(check.settled);
        lock.unlock();
        try {
            settled(check.outcomes);
        } catch (const std::exception& exception) {
            QVException::logException(exception, "MediaReadBack::settle");
        }
        lock.lock();
    }
    --unsettled_;
    unsettledBytes_ -= check.size;
    changed_.notify_all();
}

bool MediaReadBack::drain(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    draining_ = true;
    changed_.notify_all();
    const bool done = changed_.wait_for(lock, limit, [&] { return stopping_ || unsettled_ == 0; });
    return done;
}

void MediaReadBack::cancel() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
        cancelled_ = true;
    }
    changed_.notify_all();
}

bool MediaReadBack::skipped(const Check& check, std::size_t destination) const {
    return check.abandoned || check.copies[qsizetype(destination)].isEmpty() ||
           (check.completed && check.writeFailed[destination]);
}

// A destination is done with the file; the last one to be done settles it.
void MediaReadBack::finishPart(Check& check, std::size_t destination, Outcome outcome) {
    std::unique_lock lock(mutex_);
    check.outcomes[destination] = std::move(outcome);
    if (--check.pending == 0 && (check.completed || check.abandoned))
        settle(check, lock);
}

void MediaReadBack::run(std::size_t destination) {
    Worker& worker = *workers_[destination];
    std::unique_lock lock(mutex_);
    for (;;) {
        std::vector<std::shared_ptr<Check>> batch = takeBatch(worker, lock);
        if (batch.empty())
            break;
        lock.unlock();
        if (batch.size() == 1 && batch.front()->follow)
            follow(destination, *batch.front());
        else
            checkBatch(destination, batch);
        lock.lock();
    }
    // Stopping: what is left is never settled.
    std::deque<std::shared_ptr<Check>> left;
    left.swap(worker.queue);
    lock.unlock();
    for (const auto& check : left)
        finishPart(*check, destination, {});
}

// The next work for this worker: one followed file, or a run of completed small files long
// enough (or old enough) to share one flush. Empty when stopping. REQUIRES: lock holds mutex_.
std::vector<std::shared_ptr<MediaReadBack::Check>> MediaReadBack::takeBatch(
    Worker& worker, std::unique_lock<std::mutex>& lock) {
    for (;;) {
        if (stopping_)
            return {};
        auto& queue = worker.queue;
        if (!queue.empty() && (queue.front()->follow || queue.front()->abandoned)) {
            std::vector<std::shared_ptr<Check>> one{queue.front()};
            queue.pop_front();
            return one;
        }
        std::size_t files = 0;
        std::uint64_t bytes = 0;
        bool closed = false;  // the run ends before the queue does
        for (const auto& check : queue) {
            if (check->follow || !(check->completed || check->abandoned)) {
                closed = check->follow;
                break;
            }
            ++files;
            bytes += check->size;
            if (files >= kBatchFiles || bytes >= kBatchBytes) {
                closed = true;
                break;
            }
        }
        const bool old = files > 0 && Clock::now() - queue.front()->queued >= kBatchWait;
        if (files > 0 && (closed || old || draining_)) {
            std::vector<std::shared_ptr<Check>> batch(queue.begin(),
                                                      queue.begin() + qsizetype(files));
            queue.erase(queue.begin(), queue.begin() + qsizetype(files));
            return batch;
        }
        if (files > 0)
            changed_.wait_until(lock, queue.front()->queued + kBatchWait);
        else
            changed_.wait(lock);
    }
}

// One flush for the whole batch, then the copies are read back a window at a time: every
// copy of the window dropped from the cache and asked for at once, so the medium serves them
// in parallel, then digested in order.
void MediaReadBack::checkBatch(std::size_t destination,
                               const std::vector<std::shared_ptr<Check>>& batch) {
    QString flushProblem;
    if (!fileFlush_[destination] && layer_.flushFileSystem(rootFds_[destination]) != 0)
        flushProblem = problem("can't be stored on its medium: ", errno);
    for (std::size_t start = 0; start < batch.size(); start += kReadWindow) {
        const std::size_t end = std::min(batch.size(), start + kReadWindow);
        std::vector<int> fds(end - start, -1);
        std::vector<QString> troubles(end - start, flushProblem);
        for (std::size_t i = start; i < end; ++i)
            fds[i - start] = openForReadBack(destination, *batch[i], &troubles[i - start]);
        for (std::size_t i = start; i < end; ++i) {
            const int fd = fds[i - start];
            QString& trouble = troubles[i - start];
            if (fd < 0) {
                finishPart(*batch[i], destination,
                           trouble.isEmpty() ? Outcome() : Outcome{{}, trouble});
                continue;
            }
            DigestContext digest(kind_);
            std::uint64_t position = 0;
            if (trouble.isEmpty())
                trouble = readBack(destination, fd, kToTheEnd, digest, &position, false).problem;
            layer_.close(fd);
            finishPart(*batch[i], destination,
                       {trouble.isEmpty() ? digest.hexDigest() : QString(), trouble});
        }
    }
}

// Opens a copy to read it back, flushed (when its file system can't be flushed whole), dropped
// from the cache and asked for; -1 when it isn't to be read back, with the reason in trouble.
int MediaReadBack::openForReadBack(std::size_t destination, const Check& check, QString* trouble) {
    {
        const std::lock_guard lock(mutex_);
        if (skipped(check, destination))
            return -1;
    }
    const int fd = layer_.openRead(check.copies[qsizetype(destination)]);
    if (fd < 0) {
        *trouble = problem("can't be read back: ", errno);
        return -1;
    }
    if (trouble->isEmpty() && fileFlush_[destination] && layer_.flushData(fd) != 0)
        *trouble = problem("can't be stored on its medium: ", errno);
    if (trouble->isEmpty()) {
        layer_.dropCache(fd, 0, 0);
        layer_.readAhead(fd);
    }
    return fd;
}

// Reads a large copy back range by range as the writer gets ahead, each range flushed to the
// medium first; the rest once the file is complete and flushed whole.
void MediaReadBack::follow(std::size_t destination, Check& check) {
    if (check.copies[qsizetype(destination)].isEmpty())
        return finishPart(check, destination, {});
    const int fd = layer_.openRead(check.copies[qsizetype(destination)]);
    DigestContext digest(kind_);
    std::uint64_t position = 0;
    Outcome outcome;
    if (fd < 0)
        outcome.problem = problem("can't be read back: ", errno);
    // A copy whose writes stopped short (its disk failed) has nothing more to read until the
    // file is complete; it waits for that instead of asking again and again.
    bool stalled = false;
    for (bool done = false; !done && outcome.problem.isEmpty();) {
        std::uint64_t end = 0;
        {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [&] {
                return stopping_ || check.abandoned || check.completed ||
                       (!stalled && check.written >= position + 2 * kChunk);
            });
            if (skipped(check, destination) || stopping_) {
                lock.unlock();
                if (fd >= 0)
                    layer_.close(fd);
                return finishPart(check, destination, {});
            }
            done = check.completed;
            // A chunk behind the writer, so the range read is never the one being written.
            end = done ? kToTheEnd : (check.written - kChunk) / kChunk * kChunk;
        }
        if (done && layer_.flushData(fd) != 0) {
            outcome.problem = problem("can't be stored on its medium: ", errno);
            break;
        }
        const std::uint64_t before = position;
        outcome = readBack(destination, fd, end, digest, &position, true);
        stalled = !done && position - before < end - before;
    }
    if (fd >= 0)
        layer_.close(fd);
    if (outcome.problem.isEmpty())
        outcome.digest = digest.hexDigest();
    finishPart(check, destination, outcome);
}

// Reads [*position, end) from the medium into the digest, range by range: each range flushed
// first (when short of the end of the file, whose flush is the caller's) and, unless the caller
// did, its cached pages dropped so the read can't be answered from memory; dropped again after,
// so the copies don't crowd the cache.
MediaReadBack::Outcome MediaReadBack::readBack(std::size_t destination, int fd, std::uint64_t end,
                                               DigestContext& digest, std::uint64_t* position,
                                               bool dropFirst) {
    std::vector<char>& buffer = workers_[destination]->buffer;
    const bool toTheEnd = end == kToTheEnd;
    const Outcome stopped{{}, QStringLiteral("not read back: the transfer was stopped")};
    while (*position < end) {
        if (cancelled_)
            return stopped;
        const std::uint64_t rangeEnd = std::min(end, *position + kChunk);
        const std::size_t length = std::size_t(rangeEnd - *position);
        if (!toTheEnd && layer_.flushRange(fd, off_t(*position), length) != 0)
            return {{}, problem("can't be stored on its medium: ", errno)};
        if (dropFirst)
            layer_.dropCache(fd, off_t(*position), toTheEnd ? 0 : length);
        std::uint64_t got = 0;
        while (got < length) {
            if (cancelled_)
                return stopped;
            const std::size_t want = std::min<std::uint64_t>(buffer.size(), length - got);
            const ssize_t n = layer_.read(fd, buffer.data(), want, off_t(*position + got));
            if (n < 0) {
                return {{},
                        QStringLiteral("can't be read back at byte %1: %2")
                            .arg(*position + got)
                            .arg(SystemError::text(errno))};
            }
            if (n == 0)
                break;
            digest.update(buffer.data(), std::size_t(n));
            got += std::uint64_t(n);
        }
        layer_.dropCache(fd, off_t(*position), toTheEnd ? 0 : length);
        *position += got;
        if (progress_ && got > 0)
            progress_(got);
        if (got < length)
            break;  // the end of the file
    }
    return {};
}
