#pragma once
// Copies one source file to any number of destinations in a single read pass, with digests of
// the source and of every copy as read back, reporting to a delegate. Runs on the caller's
// thread and blocks until the file is done. Messages go to the system log.

#include <QString>
#include <QStringList>
#include <any>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "CopyDelegate.h"
#include "CopyInfo.h"
#include "CopyPipeline.h"
#include "FileLayer.h"

class CopyEngine {
  public:
    static constexpr std::uint64_t kProgressInterval = 41943040;  // 40 MiB
    static constexpr std::uint64_t kPassSize = CopyPipeline::kPassSize;
    static_assert(kProgressInterval % CopyPipeline::kBlockSize == 0);

    CopyEngine(FileLayer& layer, CopyDelegate* delegate);

    /// True when every byte reached every destination (a digest mismatch is told to the
    /// delegate, not through the result); false on a failed check, open, short copy, cancel or
    /// lack of memory.
    bool copy(const QString& source, const QStringList& destinations, VerificationType type,
              std::any object, std::any object2);

  private:
    bool prepareFolders(const QString& source, const QStringList& destinations) const;
    std::optional<CopyPipeline::Result> transfer(const QString& source, int sourceFd,
                                                 std::uint64_t size,
                                                 std::vector<CopyPipeline::Destination> targets,
                                                 VerificationType type);
    bool reportProgress(std::uint64_t completed);
    void compareDigests(CopyPipeline::Result& result);
    void copyAttributes(const QByteArray& source, const QStringList& destinations);

    FileLayer& layer_;
    CopyDelegate* const delegate_;
    std::shared_ptr<CopyInfo> info_;
    std::uint64_t reported_ = 0;
};
