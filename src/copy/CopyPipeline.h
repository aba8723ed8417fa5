#pragma once
// Moves the bytes of one file: reads the source once, in large blocks, and writes every block to
// each destination. With inline read-back each write is read back at once for the destination's
// digest (the source's own as long as the read-back is identical byte for byte); without it only
// the source's digest is made, and the copies are checked later from their medium. With more
// than one block the reader, the source digest and every destination run on threads of their
// own, a few blocks apart, so a slow disk or a digest never holds the others up more than the
// ring allows. Memory is fixed: kSlots source blocks plus a small read-back buffer per
// destination. A destination that fails a write gets nothing more of this file. Failures are
// told per 32 KiB pass, from the running thread and in (pass, destination) order.

#include <QByteArray>
#include <QString>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "CopyInfo.h"
#include "DigestContext.h"
#include "FileLayer.h"

class CopyPipeline {
  public:
    static constexpr std::size_t kBlockSize = 4 * 1024 * 1024;  // divides the 40 MiB cadence
    static constexpr std::size_t kPassSize = 32768;             // divides the block
    static constexpr std::size_t kSlots = 4;
    static constexpr std::size_t kReadBackSize = 128 * 1024;  // stays in the CPU's cache

    struct Destination {
        QByteArray path;
        int fd = -1;  // -1: couldn't be opened, left out
    };
    struct Result {
        std::uint64_t copied = 0;  // bytes read from the source
        bool readFailed = false;   // the source stopped with an error, not at its end
        int readError = 0;         // errno of that error
        bool stopped = false;      // the boundary callback asked to stop
        std::optional<DigestContext> sourceDigest;
        std::vector<DigestContext> destinationDigests;  // inline read-back only
        std::vector<int> writeErrors;  // per destination: errno of its failed write, else 0
    };
    /// Called on the running thread, in order, with the bytes every destination holds so far,
    /// each time a block is complete everywhere; false stops the copy.
    using Boundary = std::function<bool(std::uint64_t completed)>;

    CopyPipeline(FileLayer& layer, int sourceFd, std::uint64_t expectedSize,
                 std::vector<Destination> destinations, VerificationType type,
                 bool readBackInline = true, const std::vector<DigestContext::Kind>& also = {});

    /// Copies until the source ends or the boundary says stop. No destination writes past a
    /// multiple of `holdEvery` bytes (a multiple of kBlockSize; 0 for no hold) before the
    /// boundary call there has answered, so a stop leaves each holding exactly that much.
    /// Throws std::bad_alloc or std::system_error when memory or a thread can't be had; every
    /// thread it started has ended by then.
    Result run(std::uint64_t holdEvery, const Boundary& boundary);

  private:
    struct Block;
    class Ring;
    // A pass that didn't fully reach a destination, or couldn't be read back from it.
    struct PassFailure {
        std::uint64_t pass;
        std::size_t destination;
        bool readBack;
        int error;         // write: the stream's error indicator; read-back: errno
        std::size_t size;  // bytes in the pass
        int errorNumber;   // errno
    };
    using Failures = std::vector<PassFailure>;

    std::size_t readBlock(char* buffer, std::size_t capacity, std::uint64_t offset, Result& result);
    void writeBlock(std::size_t destination, const char* data, std::size_t size,
                    std::uint64_t offset, char* readBack, Failures& failures);
    void verifyBlock(std::size_t destination, const char* data, std::size_t size,
                     std::uint64_t offset, char* scratch, Failures& failures);
    DigestContext digestOfPrefix(int fd, std::uint64_t length);
    void logFailures(Failures& failures) const;
    Result runInline(const Boundary& boundary);
    Result runThreaded(std::uint64_t holdEvery, const Boundary& boundary);

    FileLayer& layer_;
    const int sourceFd_;
    const std::uint64_t expectedSize_;
    const std::vector<Destination> destinations_;
    const std::optional<DigestContext::Kind> kind_;  // none without verification
    const bool readBackInline_;
    std::optional<DigestContext> sourceDigest_;
    // Per destination, errno of the write that failed; touched only by its destination's thread.
    std::vector<int> writeErrors_;
    // One per destination when verifying; empty while the copy reads back identical to the
    // source. Each is touched only by its destination's thread.
    std::vector<std::optional<DigestContext>> destinationDigests_;
};
