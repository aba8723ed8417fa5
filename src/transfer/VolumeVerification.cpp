#include "VolumeVerification.h"

#include <sys/stat.h>

#include "CardFiles.h"
#include "ChecksumManifest.h"
#include "FileHash.h"
#include "FileLayer.h"
#include "PathText.h"
#include "QVException.h"
#include "QVLog.h"
#include "QVVolume.h"
#include "VerificationScope.h"

namespace {

// Hidden entries are never compared; at the top, neither is what transfers add.
bool isLeftOut(FileLayer& files, const QString& folder, const QString& basePath,
               const QByteArray& name) {
    if (VerificationScope::isHidden(name))
        return true;
    if (folder != basePath)
        return false;
    return VerificationScope::isSidecar(name, CardFiles::kManifest) ||
           VerificationScope::isOtherRecord(files, PathText::bytes(folder), name);
}

// The entries verification looks at, with what lstat says of each.
std::vector<std::pair<QString, struct stat>> entriesOf(FileLayer& files, const QString& folder,
                                                       const QString& basePath) {
    std::vector<FileLayer::Entry> listed;
    files.listFolder(PathText::bytes(folder), &listed);
    std::vector<std::pair<QString, struct stat>> entries;
    for (const FileLayer::Entry& entry : listed) {
        if (isLeftOut(files, folder, basePath, entry.name))
            continue;
        const QString name = PathText::display(entry.name);
        struct stat status {};
        if (files.linkStatus(PathText::bytes(folder) + '/' + entry.name, &status) == 0)
            entries.emplace_back(folder + u'/' + name, status);
    }
    return entries;
}

}  // namespace

void VolumeVerification::addSizes(const QString& folder, const QString& basePath,
                                  SizeMap& sizes) const {
    for (const auto& [entry, status] : entriesOf(files_, folder, basePath)) {
        if (S_ISDIR(status.st_mode))
            addSizes(entry, basePath, sizes);
        else
            sizes[entry.mid(basePath.size())] = std::uint64_t(status.st_size);
    }
}

std::optional<VolumeVerification::SizeMap> VolumeVerification::fileSizeDictForFolder(
    const QString& folder, const QString& basePath) const {
    try {
        SizeMap sizes;
        addSizes(folder, basePath.isNull() ? folder : basePath, sizes);
        return sizes;
    } catch (const std::exception& exception) {
        QVException::logException(exception, "fileSizeDictForFolder:basePath:");
        return std::nullopt;
    }
}

VolumeVerification::SizeMap VolumeVerification::fileSizeDictForPaths(
    const QStringList& paths, const QString& basePath) const {
    SizeMap sizes;
    for (const QString& path : paths) {
        struct stat status {};
        if (files_.linkStatus(PathText::bytes(path), &status) == 0)
            sizes[path.mid(basePath.size())] = std::uint64_t(status.st_size);
    }
    return sizes;
}

void VolumeVerification::checksumDictForFolder(const QString& folder, const QString& basePath,
                                               const std::shared_ptr<QVVolume>& volume,
                                               bool isSource, DigestContext::Kind kind) {
    for (const auto& [entry, status] : entriesOf(files_, folder, basePath)) {
        if (S_ISLNK(status.st_mode))
            continue;
        if (S_ISDIR(status.st_mode)) {
            checksumDictForFolder(entry, basePath, volume, isSource, kind);
            continue;
        }
        queue_.addOperation([=, this] { checksumFile(entry, basePath, volume, isSource, kind); });
    }
}

void VolumeVerification::checksumDictForFiles(const QStringList& paths, const QString& basePath,
                                              const std::shared_ptr<QVVolume>& volume,
                                              bool isSource, DigestContext::Kind kind) {
    for (const QString& path : paths) {
        struct stat status {};
        if (VerificationScope::isHidden(PathText::bytes(path.section(u'/', -1))) ||
            files_.linkStatus(PathText::bytes(path), &status) != 0 || S_ISLNK(status.st_mode))
            continue;
        queue_.addOperation([=, this] { checksumFile(path, basePath, volume, isSource, kind); });
    }
}

void VolumeVerification::checksumFile(const QString& path, const QString& basePath,
                                      const std::shared_ptr<QVVolume>& volume, bool isSource,
                                      DigestContext::Kind kind) {
    try {
        QVLog::fastAppendLog(u"Getting checksum for file %@...", path);
        const auto progress = [this, volume](std::uint64_t bytes) { progress_(volume, bytes); };
        const auto digest = FileHashCreateWithPath(kind, path, 4096, progress, files_);
        if (!digest) {
            // Left out of its side's digests, so the comparison names the file as differing.
            QVLog::appendLog(u"Unable to read file %@ to check it: %@", path,
                             digest.status().reason());
            return;
        }
        QVLog::appendLog(u"Checksum complete for file %@.", path);
        if (digest->isEmpty() || basePath.isEmpty())
            return;
        const QString relative = path.mid(basePath.size());
        if (isSource)
            volume->updateSourceChecksum(*digest, relative);
        else
            volume->updateDestChecksum(*digest, relative, basePath);
    } catch (const std::exception& exception) {
        QVException::logException(exception, "checksumFile:basePath:volume:isSource:");
    }
}
