#pragma once
// Proves every copy from its medium, never from the page cache: once a copy's bytes are
// written it is flushed to the medium, its cached pages are dropped, and it is read back,
// digested and settled. One worker per destination, so reading one file back overlaps copying
// the next; small files are flushed together (one file-system flush per batch), a large file is
// followed range by range while it is still being written. Memory: one read buffer per worker,
// and at most kMaxUnsettled files or kMaxUnsettledBytes held back before `begin` waits.
// Thread-safe. `settled` runs on a worker thread, once per file that was completed.

#include <QByteArray>
#include <QList>
#include <QString>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "DigestContext.h"
#include "FileLayer.h"

class MediaReadBack {
  public:
    static constexpr std::uint64_t kFollowSize = 32ull << 20;  // read back while still written
    static constexpr std::uint64_t kChunk = 8ull << 20;
    static constexpr std::size_t kBatchFiles = 1024;
    static constexpr std::uint64_t kBatchBytes = 128ull << 20;
    static constexpr std::size_t kMaxUnsettled = 2048;
    static constexpr std::uint64_t kMaxUnsettledBytes = 1ull << 30;

    /// What one destination's read-back found.
    struct Outcome {
        QString digest;   // lower-case hex of what the medium holds; empty when not read back
        QString problem;  // why it couldn't be trusted; empty when it could
    };
    struct Check;
    using Settled = std::function<void(const std::vector<Outcome>& outcomes)>;
    using Progress = std::function<void(std::uint64_t bytesReadBack)>;

    /// One worker per destination folder (the roots under which the copies are written).
    MediaReadBack(FileLayer& layer, DigestContext::Kind kind,
                  const QList<QByteArray>& destinationRoots, Progress progress);
    /// Gives up on whatever wasn't settled and waits for the workers.
    ~MediaReadBack();
    MediaReadBack(const MediaReadBack&) = delete;
    MediaReadBack& operator=(const MediaReadBack&) = delete;

    /// A file whose copies (one path per destination; empty for one that couldn't be made)
    /// are about to be written. Waits while too much is still unsettled.
    std::shared_ptr<Check> begin(const QList<QByteArray>& copies, std::uint64_t expectedSize);
    /// Every copy holds at least this many bytes of the file.
    void written(Check& check, std::uint64_t bytes);
    /// Every byte is written; copies whose write failed (writeFailed) are not read back.
    /// `settled` is called once every copy has been read back.
    void complete(Check& check, const std::vector<bool>& writeFailed, Settled settled);
    /// The file won't be completed: nothing is read back and nothing is settled.
    void abandon(Check& check);
    /// Waits, at most `limit`, until every file handed in is settled or abandoned; true then.
    bool drain(std::chrono::milliseconds limit);
    /// Settles nothing more; drain returns at once.
    void cancel();

  private:
    struct Worker;
    void run(std::size_t destination);
    std::vector<std::shared_ptr<Check>> takeBatch(Worker& worker,
                                                  std::unique_lock<std::mutex>& lock);
    void checkBatch(std::size_t destination, const std::vector<std::shared_ptr<Check>>& batch);
    void follow(std::size_t destination, Check& check);
    int openForReadBack(std::size_t destination, const Check& check, QString* trouble);
    Outcome readBack(std::size_t destination, int fd, std::uint64_t end, DigestContext& digest,
                     std::uint64_t* position, bool dropFirst);
    void finishPart(Check& check, std::size_t destination, Outcome outcome);
    void settle(Check& check, std::unique_lock<std::mutex>& lock);
    bool skipped(const Check& check, std::size_t destination) const;  // REQUIRES: mutex_ held

    FileLayer& layer_;
    const DigestContext::Kind kind_;
    const Progress progress_;
    std::vector<int> rootFds_;
    std::vector<bool> fileFlush_;  // per destination: the file system can't be flushed whole

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::unique_ptr<Worker>> workers_;  // each queue guarded by mutex_
    std::size_t unsettled_ = 0;                     // guarded by mutex_
    std::uint64_t unsettledBytes_ = 0;              // guarded by mutex_
    bool draining_ = false;                         // guarded by mutex_
    bool stopping_ = false;                         // guarded by mutex_
    std::atomic<bool> cancelled_ = false;           // stopping_, read without the lock
    std::vector<std::thread> threads_;
};
