#pragma once
// What the copy engine tells its caller, in order, on the copying thread (and, for copies checked
// from their medium, on the read-back's thread once they are read back). Every message has a
// default, so a delegate overrides only what it cares about.

#include <cstdint>
#include <memory>

#include "CopyInfo.h"

class CopyDelegate {
  public:
    virtual ~CopyDelegate() = default;

    /// Bytes of this file copied so far: every 40 MiB, and once at the end.
    virtual void fileCopyBytesWritten(std::uint64_t bytes, const std::shared_ptr<CopyInfo>& info) {
        static_cast<void>(bytes);
        static_cast<void>(info);
    }
    /// Asked right after each 40 MiB report; false cancels the copy.
    virtual bool fileCopyShouldContinue(const std::shared_ptr<CopyInfo>& info) {
        static_cast<void>(info);
        return true;
    }
    /// Once per destination whose digest differs from the source's (info->destChecksum is set).
    virtual void fileCopyVerificationFailed(const std::shared_ptr<CopyInfo>& info,
                                            const QString& file) {
        static_cast<void>(info);
        static_cast<void>(file);
    }
    /// A copy that can't be trusted for a reason worth naming: the source couldn't be read
    /// (destination < 0), or that destination couldn't be created, written, stored on its medium
    /// or read back. Sent before the copy's end (fileCopyFinished, or a false result).
    virtual void fileCopyProblem(const std::shared_ptr<CopyInfo>& info, int destination,
                                 const QString& reason) {
        static_cast<void>(info);
        static_cast<void>(destination);
        static_cast<void>(reason);
    }
    /// Once, at the very end of a copy whose source was read whole.
    virtual void fileCopyFinished(const std::shared_ptr<CopyInfo>& info) {
        static_cast<void>(info);
    }
};
