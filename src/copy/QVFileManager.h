#pragma once
// File, folder and volume operations with the house policy: which changes unlock first, which
// wait with a time-out, how sizes are shown and how valid and unique names are made.
// An object over the file layer it is given (tests hand in a faulty one), safe from any
// thread; the pure text helpers stay class-level. Failures are a false/empty result plus a log
// line, never an exception.

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <any>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

#include "CopyDelegate.h"
#include "CopyInfo.h"
#include "DigestContext.h"
#include "FileLayer.h"
#include "PropertyList.h"
#include "Status.h"

class Clock;
class DiskInformation;
class QVAuthorization;

class QVFileManager {
  public:
    /// authorization, when given, is where the shouldAuth forms turn after a first failure;
    /// disks, when given, answers infoForDiskAtMountpoint.
    explicit QVFileManager(FileLayer& files, QVAuthorization* authorization = nullptr,
                           const DiskInformation* disks = nullptr)
        : files_(files), authorization_(authorization), disks_(disks) {}

    // ---- Tests

    bool fileExistsAtPath(const QString& path);
    bool isDirectoryAtPath(const QString& path);
    /// A folder whose extension marks it as a bundle (".app", ".bundle", ...).
    bool isPackageAtPath(const QString& path);
    bool isSymbolicLinkAtPath(const QString& path);
    /// True unless the path lies on a media-root drive (root + one component) that isn't there.
    bool isVolumeMountedForPath(const QString& path);
    /// As isVolumeMountedForPath, logging the drive's mount point to the system log.
    bool isDriveMountedForPath(const QString& path);
    /// The local volume holding the path (deepest mount point other than "/"); else empty for
    /// paths beginning with a media root (the bare root included), "/" for the rest.
    QString volumeMountPointForPath(const QString& path);
    bool isFileLocked(const QString& path);
    /// Empty when it can't be listed, has no entries, or holds only ".DS_Store", "Icon\r" and
    /// folders that are empty themselves.
    bool isFolderEmpty(const QString& path);
    /// Bytes; a folder counts everything in it, recursively (links as themselves).
    std::uint64_t fileSize(const QString& path);

    // ---- Changes. The plain forms ask for administrator rights after a failure.

    bool trashFile(const QString& path, bool shouldAuth = true);
    bool removeFile(const QString& path, bool shouldAuth = true);
    bool createDirectory(const QString& path, bool shouldAuth = true);
    bool copyFile(const QString& source, const QString& destination, bool shouldAuth = true);
    bool moveFile(const QString& source, const QString& destination, bool shouldAuth = true);
    void trashDirectoryContents(const QString& path, bool shouldAuth = true);
    QStringList trashFilesOfType(const QString& extension, const QString& folder);
    QStringList trashFilesNamed(const QString& name, const QString& folder);
    bool removeFolderIfEmpty(const QString& path);
    /// Creates (if missing) the folder part of relativePath under destination and returns it.
    QString createDirectoryStructure(const QString& relativePath, const QString& destination);

    // Time-out forms (whole seconds): the plain operation, then a wait for its effect. On the
    // main thread the wait keeps handling events; elsewhere it sleeps 0.3 s between checks.
    bool trashFile(const QString& path, int timeout);
    bool removeFile(const QString& path, int timeout);
    bool createDirectory(const QString& path, int timeout);
    bool copyFile(const QString& source, const QString& destination, int timeout);
    bool moveFile(const QString& source, const QString& destination, int timeout);
    /// Copies every entry of the folder into destination, each with the time-out form.
    bool copyContentsOfDirectory(const QString& path, const QString& destination, int timeout);

    /// Zips a file or folder (under its own name with includeParent); an existing destination
    /// goes to the trash first. True when the archive exists afterwards.
    bool compressFile(const QString& source, const QString& destinationFile,
                      bool includeParent = true);
    bool decompressFile(const QString& archive, const QString& destinationFolder);

    bool lockFile(const QString& path);
    bool unlockFile(const QString& path);
    void lockFolder(const QString& path);
    void unlockFolder(const QString& path);
    bool setPosixPermissions(unsigned permissions, const QString& path);
    bool setModificationDate(const QDateTime& date, const QString& path);
    bool createEmptyFile(const QString& path);
    /// Sets the access and modification times to now, as touch -c does (creation times can't
    /// be set on Linux, so setCreationDate changes nothing more).
    void touchFile(const QString& path, bool setCreationDate = true);
    /// Extended attribute as UTF-8 text; keys without a namespace go to "user.". Values are
    /// read with a 255-byte buffer, so longer ones come back cut.
    std::optional<QString> metadataValueForKey(const QString& key, const QString& path);
    bool setMetadataValue(const QString& value, const QString& key, const QString& path);
    bool setFinderColorIndex(int index, const QString& path);

    // ---- Queries

    /// The disk-information dictionary (DiskUUID, VolumeUUID, ...) of a mounted volume, or
    /// nullopt for anything that isn't the mount point of a disk (or without disks).
    std::optional<PropertyList> infoForDiskAtMountpoint(const QString& mountPoint);
    static QString formatFileSize(double size);
    static QString validateFilename(const QString& name);
    /// The path itself when free, else "name 2.ext", "name 3.ext", ...
    QString uniqueFilename(const QString& path);
    /// Paths matching a pattern of "*" and "?" per component (case-sensitive). A pattern
    /// without "*" gives itself joined to the base path. searchSubdirs is accepted and ignored.
    QStringList filesMatchingWildcardPath(const QString& pattern,
                                          const QString& basePath = QString(),
                                          bool searchSubdirs = false);
    QString decodeWildcardPath(const QString& pattern, const QString& basePath);
    /// Returns at once; waits 500 microseconds when the file is still missing or empty.
    void waitForFileCreation(const QString& path, double timeout);
    /// Waits while the modification time is under 4 s old by clock.
    void waitForFileWrites(const Clock& clock, const QString& path,
                           const QString& lockFile = QString());

    /// The four-character file type code from FinderInfo where a file system carries one
    /// (e.g. 'MooV' for a QuickTime movie), else 0.
    quint32 hfsTypeCodeForPath(const QString& path);
    /// The FinderInfo flags word where a file system carries one, else 0.
    int finderColorIndexForPath(const QString& path);
    /// Hue, saturation, brightness (alpha is 1) for a flags value of 2..15; nullopt otherwise.
    struct HSBColor {
        double hue, saturation, brightness, alpha;
    };
    std::optional<HSBColor> finderColorForPath(const QString& path);
    static std::optional<HSBColor> finderColorForColorIndex(int index);

    // ---- The copy engine (see CopyEngine)

    /// Copies source to every destination in one read pass, with digests of the source and of
    /// each copy when type asks for them; blocks until done.
    bool copyFileWithProgress(const QString& source, const QStringList& destinations,
                              VerificationType type, CopyDelegate* delegate, std::any object = {},
                              std::any object2 = {});
    /// One destination, no digests.
    bool copyFileWithProgress(const QString& source, const QString& destination,
                              CopyDelegate* delegate, std::any object = {}, std::any object2 = {});

    // ---- Digests and desktop notices

    static QString md5HashWithContext(const DigestContext& context);
    static QString sha1HashWithContext(const DigestContext& context);
    /// Nothing to do on Linux: file managers watch the file system themselves.
    static void notifyFileSystemChanged(const QString& path);

  private:
    using SteadyClock = std::chrono::steady_clock;
    static bool waitForState(SteadyClock::time_point start, int timeout,
                             const std::function<bool()>& holds);
    Status moveItem(const QString& source, const QString& destination);
    static bool isCaseOnlyChange(const QString& source, const QString& destination);

    FileLayer& files_;
    QVAuthorization* authorization_;  // may be null: no administrator rights to ask for
    const DiskInformation* disks_;    // may be null: no disk facts to give
};
