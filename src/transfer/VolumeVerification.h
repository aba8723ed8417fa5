#pragma once
// The walks of verification: file sizes of a card or a copy, and digests of every file read
// back through the file layer on a pool of eight threads shared by every volume, into the
// volume's source or destination digests. Safe from any thread.

#include <QString>
#include <QStringList>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>

#include "DigestContext.h"
#include "OperationQueue.h"

class FileLayer;
class QVVolume;

class VolumeVerification {
  public:
    using SizeMap = std::map<QString, std::uint64_t>;
    /// Bytes digested for the volume since the last call.
    using Progress = std::function<void(const std::shared_ptr<QVVolume>& volume, std::uint64_t)>;

    VolumeVerification(FileLayer& files, Progress progress)
        : files_(files), progress_(std::move(progress)) {}

    /// Sizes by path below basePath (folder itself when null), links as themselves; hidden
    /// entries, the manifest, archives, and at the top the history, the report and a later
    /// transfer's numbered copy are left out.
    std::optional<SizeMap> fileSizeDictForFolder(const QString& folder,
                                                 const QString& basePath = QString()) const;
    SizeMap fileSizeDictForPaths(const QStringList& paths, const QString& basePath) const;

    /// Queues a digest of every file below folder (links left out), as the walk of sizes.
    void checksumDictForFolder(const QString& folder, const QString& basePath,
                               const std::shared_ptr<QVVolume>& volume, bool isSource,
                               DigestContext::Kind kind);
    void checksumDictForFiles(const QStringList& paths, const QString& basePath,
                              const std::shared_ptr<QVVolume>& volume, bool isSource,
                              DigestContext::Kind kind);
    /// One file's digest into the volume; a file that can't be read gets none, so it differs.
    void checksumFile(const QString& path, const QString& basePath,
                      const std::shared_ptr<QVVolume>& volume, bool isSource,
                      DigestContext::Kind kind);
    void waitUntilDone() { queue_.waitUntilAllOperationsAreFinished(); }
    /// Drops the digests not yet started.
    void cancel() { queue_.cancelAllOperations(); }

  private:
    void addSizes(const QString& folder, const QString& basePath, SizeMap& sizes) const;

    FileLayer& files_;
    const Progress progress_;
    OperationQueue queue_{8};
};
