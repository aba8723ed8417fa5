#include "CopyPipeline.h"

#include <QFile>
#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include "SystemLog.h"

namespace {

std::optional<DigestContext::Kind> digestKind(VerificationType type) {
    switch (type) {
        case VerificationType::MD5:
            return DigestContext::Kind::MD5;
        case VerificationType::SHA1:
            return DigestContext::Kind::SHA1;
        case VerificationType::None:
            break;
    }
    return std::nullopt;
}

}  // namespace

struct CopyPipeline::Block {
    std::unique_ptr<char[]> data;
    std::size_t size = 0;
    std::uint64_t offset = 0;
    bool last = false;
};

// Hands blocks from one reader to several consumers, each taking every block in order.
// A slot is reused only when every consumer is done with it.
class CopyPipeline::Ring {
  public:
    explicit Ring(std::size_t consumers) : done_(consumers, 0) {
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
            ends_.push_back({block.offset + block.size, block.size, block.last});
        }
        changed_.notify_all();
    }
    /// Block `index` once read; null when stopping.
    const Block* blockForReading(std::uint64_t index) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return stop_ || produced_ > index; });
        return stop_ ? nullptr : &blocks_[index % kSlots];
    }
    void finished(std::size_t consumer) {
        {
            const std::lock_guard lock(mutex_);
            ++done_[consumer];
        }
        changed_.notify_all();
    }
    struct Completion {
        std::uint64_t end;
        std::size_t size;
        bool last;
    };
    /// Waits until every consumer is done with the next block; nullopt when stopping. (The slot
    /// itself may already hold a later block by then, so its facts are kept apart.)
    std::optional<Completion> waitForNextCompletion() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return stop_ || slowest() > completions_; });
        if (stop_)
            return std::nullopt;
        ++completions_;
        const Completion completion = ends_.front();
        ends_.pop_front();
        return completion;
    }
    void stop() {
        {
            const std::lock_guard lock(mutex_);
            stop_ = true;
        }
        changed_.notify_all();
    }

  private:
    // REQUIRES: mutex_ is held.
    std::uint64_t slowest() const {
        if (done_.empty())
            return produced_;
        return *std::min_element(done_.begin(), done_.end());
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    Block blocks_[kSlots];
    std::uint64_t produced_ = 0;       // guarded by mutex_
    std::uint64_t completions_ = 0;    // guarded by mutex_: blocks handed to waitForNextCompletion
    std::deque<Completion> ends_;      // guarded by mutex_: published, not yet completed
    std::vector<std::uint64_t> done_;  // guarded by mutex_: blocks finished per consumer
    bool stop_ = false;                // guarded by mutex_
};

CopyPipeline::CopyPipeline(FileLayer& layer, int sourceFd, std::uint64_t expectedSize,
                           std::vector<Destination> destinations, VerificationType type)
    : layer_(layer),
      sourceFd_(sourceFd),
      expectedSize_(expectedSize),
      destinations_(std::move(destinations)),
      kind_(digestKind(type)) {
    if (kind_) {
        sourceDigest_.emplace(*kind_);
        destinationDigests_.resize(destinations_.size());
    }
}

CopyPipeline::Result CopyPipeline::run(const Boundary& boundary) {
    layer_.adviseSequential(sourceFd_);
    Result result = expectedSize_ < kBlockSize ? runInline(boundary) : runThreaded(boundary);
    for (std::optional<DigestContext>& digest : destinationDigests_)
        result.destinationDigests.push_back(digest ? std::move(*digest) : *sourceDigest_);
    result.sourceDigest = std::move(sourceDigest_);
    return result;
}

// Fills the buffer like a buffered stream would: short only at the end or on an error.
std::size_t CopyPipeline::readBlock(char* buffer, std::size_t capacity, std::uint64_t offset,
                                    bool* failed) {
    std::size_t filled = 0;
    while (filled < capacity) {
        const ssize_t n =
            layer_.read(sourceFd_, buffer + filled, capacity - filled, off_t(offset + filled));
        if (n < 0)
            *failed = true;
        if (n <= 0)
            break;
        filled += std::size_t(n);
    }
    return filled;
}

void CopyPipeline::writeBlock(std::size_t index, const char* data, std::size_t size,
                              std::uint64_t offset, char* readBack) {
    const Destination& destination = destinations_[index];
    std::size_t written = 0;
    while (written < size) {
        const ssize_t n =
            layer_.write(destination.fd, data + written, size - written, off_t(offset + written));
        if (n <= 0) {
            SystemLog::log(u"Error writing file %@: %i", QFile::decodeName(destination.path),
                           n < 0 ? errno : 0);
            break;
        }
        written += std::size_t(n);
    }
    if (kind_)
        verifyBlock(index, data, size, offset, readBack);
}

// Reads the block back in cache-sized pieces. While every byte read back equals the source's,
// this copy's digest is the source's digest and needn't be computed twice. At the first
// difference it gets a digest of its own over what the destination really holds; a short
// read-back feeds fewer bytes, so damage can never pass as a match.
void CopyPipeline::verifyBlock(std::size_t index, const char* data, std::size_t size,
                               std::uint64_t offset, char* scratch) {
    const int fd = destinations_[index].fd;
    std::optional<DigestContext>& digest = destinationDigests_[index];
    for (std::size_t position = 0; position < size;) {
        const std::size_t wanted = std::min(kReadBackSize, size - position);
        std::size_t got = 0;
        while (got < wanted) {
            const ssize_t n =
                layer_.read(fd, scratch + got, wanted - got, off_t(offset + position + got));
            if (n <= 0)
                break;
            got += std::size_t(n);
        }
        if (!digest) {
            if (got == wanted && std::memcmp(scratch, data + position, wanted) == 0) {
                position += wanted;
                continue;
            }
            digest = digestOfPrefix(fd, offset + position);
        }
        digest->update(scratch, got);
        if (got < wanted)
            return;
        position += wanted;
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

CopyPipeline::Result CopyPipeline::runInline(const Boundary& boundary) {
    Result result;
    // Sized to the file (one byte over, to see its end in one read): small files are the
    // common case on a card and shouldn't pay for a full block.
    const std::size_t capacity =
        std::min<std::size_t>(kBlockSize, std::max<std::size_t>(expectedSize_ + 1, 65536));
    const auto block = std::make_unique_for_overwrite<char[]>(capacity);
    const auto readBack = std::make_unique_for_overwrite<char[]>(kReadBackSize);
    for (;;) {
        const std::size_t n = readBlock(block.get(), capacity, result.copied, &result.readFailed);
        if (sourceDigest_)
            sourceDigest_->update(block.get(), n);
        for (std::size_t d = 0; d < destinations_.size(); ++d)
            writeBlock(d, block.get(), n, result.copied, readBack.get());
        result.copied += n;
        if (n > 0 && !boundary(result.copied)) {
            result.stopped = true;
            return result;
        }
        if (n < capacity)
            return result;
    }
}

CopyPipeline::Result CopyPipeline::runThreaded(const Boundary& boundary) {
    Result result;
    const std::size_t consumers = destinations_.size() + (sourceDigest_ ? 1 : 0);
    Ring ring(consumers);
    std::vector<std::thread> threads;

    threads.emplace_back([&] {
        for (std::uint64_t index = 0, offset = 0;; ++index) {
            Block* block = ring.slotForWriting(index);
            if (!block)
                return;
            block->offset = offset;
            block->size = readBlock(block->data.get(), kBlockSize, offset, &result.readFailed);
            block->last = block->size < kBlockSize;
            offset += block->size;
            result.copied = offset;
            ring.publish(*block);
            if (block->last)
                return;
        }
    });
    const auto consume = [&ring](std::size_t consumer, const auto& work) {
        for (std::uint64_t index = 0;; ++index) {
            const Block* block = ring.blockForReading(index);
            if (!block)
                return;
            work(*block);
            // Read before letting go: the reader may refill the slot at once.
            const bool last = block->last;
            ring.finished(consumer);
            if (last)
                return;
        }
    };
    for (std::size_t d = 0; d < destinations_.size(); ++d) {
        threads.emplace_back([&, d] {
            const auto readBack = std::make_unique_for_overwrite<char[]>(kReadBackSize);
            consume(d, [&](const Block& block) {
                writeBlock(d, block.data.get(), block.size, block.offset, readBack.get());
            });
        });
    }
    if (sourceDigest_) {
        threads.emplace_back([&] {
            consume(destinations_.size(), [&](const Block& block) {
                sourceDigest_->update(block.data.get(), block.size);
            });
        });
    }

    for (;;) {
        const auto completion = ring.waitForNextCompletion();
        if (!completion)
            break;
        if (completion->size > 0 && !boundary(completion->end)) {
            result.stopped = true;
            ring.stop();
            break;
        }
        if (completion->last)
            break;
    }
    for (std::thread& thread : threads)
        thread.join();
    return result;
}
