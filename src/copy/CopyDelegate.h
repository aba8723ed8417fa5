#pragma once
// What the copy engine tells its caller, on the copying thread and in order. Every message has
// a default, so a delegate overrides only what it cares about.

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
    /// Once, at the very end of a successful copy.
    virtual void fileCopyFinished(const std::shared_ptr<CopyInfo>& info) {
        static_cast<void>(info);
    }
};
