#include "CopyPipeline.h"

#include <QFile>
#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>
#include <tuple>

#include "SystemLog.h"

namespace {

constexpr std::uint64_t kPass = CopyPipeline::kPassSize;

std::optional<DigestContext::Kind> digestKind(VerificationType type) {
    if (type == VerificationType::None)
        return std::nullopt;
    return DigestContext::Kind(int(type) - 1);
}

struct Transfer {
    std::size_t done = 0;
    bool failed = false;  // stopped on an error, not short
    int errorNumber = 0;
};

// Repeats a read or a write (given the bytes done so far) until it is whole, reaches the end
// or fails, as fread and fwrite do.
template <typename Step>
Transfer repeatUntilWhole(std::size_t size, const Step& step) {
    Transfer transfer;
    while (transfer.done < size) {
        const ssize_t n = step(transfer.done);
        if (n < 0) {
            transfer.failed = true;
            transfer.errorNumber = errno;
        }
        if (n <= 0)
            break;
        transfer.done += std::size_t(n);
    }
    return transfer;
}

Transfer writeFully(FileLayer& layer, int fd, const char* data, std::size_t size,
                    std::uint64_t offset) {
    return repeatUntilWhole(size, [&](std::size_t done) {
        return layer.write(fd, data + done, size - done, off_t(offset + done));
    });
}

Transfer readFully(FileLayer& layer, int fd, char* buffer, std::size_t size, std::uint64_t offset) {
    return repeatUntilWhole(size, [&](std::size_t done) {
        return layer.read(fd, buffer + done, size - done, off_t(offset + done));
    });
}

// Where a pass ends within a block of `size` bytes at `offset` (a whole number of passes in).
std::size_t passEnd(std::uint64_t pass, std::uint64_t offset, std::size_t size) {
    return std::size_t(std::min(offset + size, (pass + 1) * kPass) - offset);
}

std::size_t passStart(std::uint64_t pass, std::uint64_t offset) {
    return std::size_t(pass * kPass - offset);
}

}  // namespace

struct CopyPipeline::Block {
    std::unique_ptr<char[]> data;
    std::size_t size = 0;
    std::uint64_t offset = 0;
    bool last = false;
};

// Hands blocks from one reader to several consumers, each taking every block in order.
// A slot is reused only when every consumer is done with it. The first `held` consumers (the
// destinations) wait at every holdBlocks-th block until the block before it has been answered.
class CopyPipeline::Ring {
  public:
    Ring(std::size_t consumers, std::size_t held, std::uint64_t holdBlocks)
        : held_(held), holdBlocks_(holdBlocks), done_(consumers, 0) {
        for (Block& block : blocks_)
            block.data = std::make_unique_for_overwrite<char[]>(kBlockSize);
    }

    /// The slot for block `index`, once free; null when stopping.
    Block* slotForWriting(std::uint64_t index) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return stop_ || index - slowest() < kSlots; });
        return stop_ ? nullptr : &blocks_[index % kSlots];
    }
    void publish(const Block& block) {
        {
            const std::lock_guard lock(mutex_);
            ++produced_;
            ends_.push_back({block.offset + block.size, block.size, block.last, {}});
        }
        changed_.notify_all();
    }
    /// Block `index` once read (and, for a held consumer, released); null when stopping.
    const Block* blockForReading(std::uint64_t index, std::size_t consumer) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock,
                      [&] { return stop_ || (produced_ > index && mayStart(index, consumer)); });
        return stop_ ? nullptr : &blocks_[index % kSlots];
    }
    /// The consumer is done with its next block; its failures go with that block's completion.
    void finished(std::size_t consumer, Failures failures) {
        {
            const std::lock_guard lock(mutex_);
            if (!failures.empty()) {
                Failures& pending = ends_[std::size_t(done_[consumer] - completions_)].failures;
                pending.insert(pending.end(), failures.begin(), failures.end());
            }
            ++done_[consumer];
        }
        changed_.notify_all();
    }
    struct Completion {
        std::uint64_t end;
        std::size_t size;
        bool last;
        Failures failures;
    };
    /// Waits until every consumer is done with the next block; nullopt when stopping. (The slot
    /// itself may already hold a later block by then, so its facts are kept apart.)
    std::optional<Completion> waitForNextCompletion() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return stop_ || slowest() > completions_; });
        if (stop_)
            return std::nullopt;
        ++completions_;
        Completion completion = std::move(ends_.front());
        ends_.pop_front();
        return completion;
    }
    /// The last completion handed out has been answered: held consumers may pass it.
    void answered() {
        bool release = false;
        {
            const std::lock_guard lock(mutex_);
            ++answered_;
            release = holdBlocks_ != 0 && answered_ % holdBlocks_ == 0;
        }
        if (release)
            changed_.notify_all();
    }
    /// Stops everyone; with an exception, one a thread couldn't go on with.
    void stop(std::exception_ptr why = nullptr) {
        {
            const std::lock_guard lock(mutex_);
            stop_ = true;
            if (!failure_)
                failure_ = std::move(why);
        }
        changed_.notify_all();
    }
    std::exception_ptr failure() {
        const std::lock_guard lock(mutex_);
        return failure_;
    }

  private:
    // REQUIRES: mutex_ is held.
    std::uint64_t slowest() const {
        if (done_.empty())
            return produced_;
        return *std::min_element(done_.begin(), done_.end());
    }
    // REQUIRES: mutex_ is held.
    bool mayStart(std::uint64_t index, std::size_t consumer) const {
        return consumer >= held_ || holdBlocks_ == 0 || index % holdBlocks_ != 0 ||
               answered_ >= index;
    }

    const std::size_t held_;
    const std::uint64_t holdBlocks_;
    std::mutex mutex_;
    std::condition_variable changed_;
    Block blocks_[kSlots];
    std::uint64_t produced_ = 0;       // guarded by mutex_
    std::uint64_t completions_ = 0;    // guarded by mutex_: blocks handed to waitForNextCompletion
    std::uint64_t answered_ = 0;       // guarded by mutex_: completions answered
    std::deque<Completion> ends_;      // guarded by mutex_: published, not yet completed
    std::vector<std::uint64_t> done_;  // guarded by mutex_: blocks finished per consumer
    bool stop_ = false;                // guarded by mutex_
    std::exception_ptr failure_;       // guarded by mutex_
};

CopyPipeline::CopyPipeline(FileLayer& layer, int sourceFd, std::uint64_t expectedSize,
                           std::vector<Destination> destinations, VerificationType type,
                           bool readBackInline, const std::vector<DigestContext::Kind>& also)
    : layer_(layer),
      sourceFd_(sourceFd),
      expectedSize_(expectedSize),
      destinations_(std::move(destinations)),
      kind_(digestKind(type)),
      readBackInline_(readBackInline),
      writeErrors_(destinations_.size(), 0) {
    if (kind_)
        sourceDigest_.emplace(*kind_, also);
    if (kind_ && readBackInline_)
        destinationDigests_.resize(destinations_.size());
}

CopyPipeline::Result CopyPipeline::run(std::uint64_t holdEvery, const Boundary& boundary) {
    layer_.adviseSequential(sourceFd_);
    Result result =
        expectedSize_ < kBlockSize ? runInline(boundary) : runThreaded(holdEvery, boundary);
    for (std::optional<DigestContext>& digest : destinationDigests_)
        result.destinationDigests.push_back(digest ? std::move(*digest) : *sourceDigest_);
    result.sourceDigest = std::move(sourceDigest_);
    result.writeErrors = writeErrors_;
    return result;
}

// Fills the buffer like a buffered stream would: short only at the end or on an error.
std::size_t CopyPipeline::readBlock(char* buffer, std::size_t capacity, std::uint64_t offset,
                                    Result& result) {
    const Transfer transfer = readFully(layer_, sourceFd_, buffer, capacity, offset);
    if (transfer.failed) {
        result.readFailed = true;
        result.readError = transfer.errorNumber;
    }
    return transfer.done;
}

// The whole block goes at once. The first pass that doesn't land is told, and the destination
// gets nothing more of this file: a disk that is full or failing would refuse every later pass
// too. With inline read-back its digest from then on is that of what it really holds.
void CopyPipeline::writeBlock(std::size_t index, const char* data, std::size_t size,
                              std::uint64_t offset, char* readBack, Failures& failures) {
    const int fd = destinations_[index].fd;
    if (fd < 0 || writeErrors_[index] != 0)
        return;
    const Transfer whole = writeFully(layer_, fd, data, size, offset);
    if (whole.done < size) {
        const std::uint64_t pass = (offset + whole.done) / kPass;
        writeErrors_[index] = whole.failed ? whole.errorNumber : EIO;
        failures.push_back({pass, index, false, whole.failed ? 1 : 0,
                            passEnd(pass, offset, size) - passStart(pass, offset),
                            writeErrors_[index]});
        if (kind_ && readBackInline_ && !destinationDigests_[index])
            destinationDigests_[index] = digestOfPrefix(fd, offset + whole.done);
        return;
    }
    if (kind_ && readBackInline_)
        verifyBlock(index, data, size, offset, readBack, failures);
    // When the medium is read back, a large file's blocks go to the disk as they come so the
    // reader finds them written. Otherwise, and for small files, writeback is the kernel's:
    // it writes many pages back together far better than we do one block at a time.
    if (expectedSize_ >= kBlockSize && !readBackInline_)
        layer_.startWriteback(fd, off_t(offset), size);
}

// Reads the block back in cache-sized pieces. While every byte read back equals the source's,
// this copy's digest is the source's digest and needn't be computed twice. At the first
// difference it gets a digest of its own over what the destination really holds; a short
// read-back feeds fewer bytes, so damage can never pass as a match. A pass that can't be read
// is told and skipped, and the rest are tried pass by pass.
void CopyPipeline::verifyBlock(std::size_t index, const char* data, std::size_t size,
                               std::uint64_t offset, char* scratch, Failures& failures) {
    const int fd = destinations_[index].fd;
    std::optional<DigestContext>& digest = destinationDigests_[index];
    std::size_t piece = kReadBackSize;
    for (std::size_t position = 0; position < size;) {
        const std::size_t wanted = std::min(piece, size - position);
        const Transfer got = readFully(layer_, fd, scratch, wanted, offset + position);
        if (!digest) {
            if (got.done == wanted && std::memcmp(scratch, data + position, wanted) == 0) {
                position += wanted;
                continue;
            }
            digest = digestOfPrefix(fd, offset + position);
        }
        digest->update(scratch, got.done);
        if (got.done == wanted) {
            position += wanted;
            continue;
        }
        if (!got.failed)
            return;  // the copy ends here
        const std::uint64_t pass = (offset + position + got.done) / kPass;
        position = passEnd(pass, offset, size);
        failures.push_back({pass, index, true, got.errorNumber, position - passStart(pass, offset),
                            got.errorNumber});
        piece = kPassSize;
    }
}

DigestContext CopyPipeline::digestOfPrefix(int fd, std::uint64_t length) {
    DigestContext digest(*kind_);
    std::vector<char> buffer(1024 * 1024);
    for (std::uint64_t done = 0; done < length;) {
        const std::size_t wanted =
            std::size_t(std::min<std::uint64_t>(buffer.size(), length - done));
        const ssize_t n = layer_.read(fd, buffer.data(), wanted, off_t(done));
        if (n <= 0)
            break;
        digest.update(buffer.data(), std::size_t(n));
        done += std::uint64_t(n);
    }
    return digest;
}

void CopyPipeline::logFailures(Failures& failures) const {
    std::sort(failures.begin(), failures.end(), [](const PassFailure& a, const PassFailure& b) {
        return std::tie(a.pass, a.destination, a.readBack) <
               std::tie(b.pass, b.destination, b.readBack);
    });
    for (const PassFailure& failure : failures) {
        const QString path = QFile::decodeName(destinations_[failure.destination].path);
        if (!failure.readBack) {
            SystemLog::log(u"Error writing file %@: %i", path, failure.error);
            continue;
        }
        SystemLog::log(u"Error: unable to seek within file %@", path);
        SystemLog::log(u"cur pos: %llu", failure.pass * kPass);
        SystemLog::log(u"read size: %i", failure.size);
        SystemLog::log(u"errno: %i", failure.error);
        SystemLog::log(u"err: %i", 1);
    }
    failures.clear();
}

CopyPipeline::Result CopyPipeline::runInline(const Boundary& boundary) {
    Result result;
    // Sized to the file (one byte over, to see its end in one read), in whole passes: small
    // files are the common case on a card and shouldn't pay for a full block.
    const std::size_t wanted = std::max<std::size_t>(std::size_t(expectedSize_) + 1, 65536);
    const std::size_t capacity = std::min(kBlockSize, (wanted + kPassSize - 1) / kPass * kPass);
    const auto block = std::make_unique_for_overwrite<char[]>(capacity);
    const bool readingBack = kind_ && readBackInline_;
    const auto readBack = std::make_unique_for_overwrite<char[]>(readingBack ? kReadBackSize : 0);
    Failures failures;
    for (;;) {
        const std::size_t n = readBlock(block.get(), capacity, result.copied, result);
        if (sourceDigest_)
            sourceDigest_->update(block.get(), n);
        for (std::size_t d = 0; d < destinations_.size(); ++d)
            writeBlock(d, block.get(), n, result.copied, readBack.get(), failures);
        logFailures(failures);
        result.copied += n;
        if (n > 0 && !boundary(result.copied)) {
            result.stopped = true;
            return result;
        }
        if (n < capacity)
            return result;
    }
}

CopyPipeline::Result CopyPipeline::runThreaded(std::uint64_t holdEvery, const Boundary& boundary) {
    Result result;
    const std::size_t writers = destinations_.size();
    Ring ring(writers + (sourceDigest_ ? 1 : 0), writers, holdEvery / kBlockSize);
    std::vector<std::unique_ptr<char[]>> readBacks;
    for (std::size_t d = 0; kind_ && readBackInline_ && d < writers; ++d)
        readBacks.push_back(std::make_unique_for_overwrite<char[]>(kReadBackSize));
    readBacks.resize(writers);

    // A thread that can't go on (out of memory) stops the others; this thread rethrows.
    const auto guarded = [&ring](auto body) {
        return [&ring, body] {
            try {
                body();
            } catch (...) {
                ring.stop(std::current_exception());
            }
        };
    };
    const auto consume = [&ring](std::size_t consumer, const auto& work) {
        for (std::uint64_t index = 0;; ++index) {
            const Block* block = ring.blockForReading(index, consumer);
            if (!block)
                return;
            Failures failures;
            work(*block, failures);
            // Read before letting go: the reader may refill the slot at once.
            const bool last = block->last;
            ring.finished(consumer, std::move(failures));
            if (last)
                return;
        }
    };
    std::vector<std::thread> threads;
    const auto joinAll = [&] {
        ring.stop();
        for (std::thread& thread : threads)
            thread.join();
    };
    try {
        threads.emplace_back(guarded([&] {
            for (std::uint64_t index = 0, offset = 0;; ++index) {
                Block* block = ring.slotForWriting(index);
                if (!block)
                    return;
                block->offset = offset;
                block->size = readBlock(block->data.get(), kBlockSize, offset, result);
                block->last = block->size < kBlockSize;
                offset += block->size;
                result.copied = offset;
                ring.publish(*block);
                if (block->last)
                    return;
            }
        }));
        for (std::size_t d = 0; d < writers; ++d) {
            threads.emplace_back(guarded([&, d] {
                consume(d, [&](const Block& block, Failures& failures) {
                    writeBlock(d, block.data.get(), block.size, block.offset, readBacks[d].get(),
                               failures);
                });
            }));
        }
        if (sourceDigest_) {
            threads.emplace_back(guarded([&] {
                consume(writers, [&](const Block& block, Failures&) {
                    sourceDigest_->update(block.data.get(), block.size);
                });
            }));
        }

        for (;;) {
            auto completion = ring.waitForNextCompletion();
            if (!completion)
                break;
            logFailures(completion->failures);
            if (completion->size > 0 && !boundary(completion->end)) {
                result.stopped = true;
                break;
            }
            if (completion->last)
                break;
            ring.answered();
        }
    } catch (...) {
        joinAll();
        throw;
    }
    // Every thread is on its way out by now (or held, when stopped), so stopping is safe.
    joinAll();
    if (const std::exception_ptr failure = ring.failure())
        std::rethrow_exception(failure);
    return result;
}
