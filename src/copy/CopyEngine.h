#pragma once
// Copies one source file to any number of destinations in a single read pass, with the source's
// digest made on the way. Each copy is checked either inline (every write read back at once,
// which the page cache may answer) or, given a MediaReadBack, from its medium after it is
// written: then the digests, mismatches and fileCopyFinished come once it is read back, on the
// read-back's thread. Runs on the caller's thread and blocks until the bytes are written.
// Messages go to the system log.

#include <QByteArray>
#include <QList>
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
#include "MediaReadBack.h"

class CopyEngine {
  public:
    static constexpr std::uint64_t kProgressInterval = 41943040;  // 40 MiB
    static constexpr std::uint64_t kPassSize = CopyPipeline::kPassSize;
    static_assert(kProgressInterval % CopyPipeline::kBlockSize == 0);

    CopyEngine(FileLayer& layer, CopyDelegate* delegate, MediaReadBack* readBack = nullptr);

    /// True when the source was read to its end and every copy could be made. A copy that
    /// couldn't be made is left out and told as a fileCopyProblem, the others still get the file
    /// (and fileCopyFinished), but the result is false. A failed write is a fileCopyProblem and
    /// its damage a fileCopyVerificationFailed, not the result. Also false when the source is
    /// missing or couldn't be read whole, on cancel or lack of memory.
    bool copy(const QByteArray& source, const QList<QByteArray>& destinations,
              VerificationType type, std::any object, std::any object2);
    bool copy(const QString& source, const QStringList& destinations, VerificationType type,
              std::any object, std::any object2);

    /// After copy: per destination, errno of what made it fail (creating, writing or closing
    /// its copy), else 0.
    const std::vector<int>& destinationErrors() const { return destinationErrors_; }
    /// Where a copy grows until all of it is written (and, with a read-back, found equal to
    /// the source): a hidden name in the same folder, which the walks leave out. A copy that
    /// fails or is stopped keeps it, so no file under its own name is ever short or wrong.
    static QByteArray partialPathFor(const QByteArray& path);
    /// Further digests of the source made from the same read (CopyInfo::alsoChecksums).
    void alsoDigest(std::vector<DigestContext::Kind> kinds) { also_ = std::move(kinds); }

  private:
    class OpenFiles;
    /// Per destination, whether its folder is there.
    std::vector<bool> prepareFolders(const QList<QByteArray>& destinations);
    int openDestination(OpenFiles& files, const QByteArray& path);
    std::vector<CopyPipeline::Destination> openDestinations(OpenFiles& files,
                                                            const std::vector<bool>& ready);
    std::optional<CopyPipeline::Result> transfer(int sourceFd, std::uint64_t size,
                                                 std::vector<CopyPipeline::Destination> targets,
                                                 VerificationType type,
                                                 MediaReadBack::Check* check);
    bool reportProgress(std::uint64_t completed);
    void tellProblem(int destination, const QString& reason);
    /// The source can't be read: the line (of the source's path) logged, the problem told.
    bool sourceUnreadable(QStringView line, int code);
    void handOverToReadBack(MediaReadBack::Check& check, const QString& sourceDigest,
                            const std::vector<bool>& opened, const std::vector<bool>& failed);

    FileLayer& layer_;
    CopyDelegate* const delegate_;
    MediaReadBack* const readBack_;
    std::shared_ptr<CopyInfo> info_;
    std::uint64_t reported_ = 0;
    std::vector<int> destinationErrors_;
    std::vector<DigestContext::Kind> also_;
};
