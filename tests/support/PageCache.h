#pragma once
// What a medium really holds, as against what the page cache remembers of it: a file's pages
// written back and dropped, so the next read goes to the medium.
//
// Class-level operations only; any thread.

#include <QByteArray>
#include <QString>
#include <optional>

class PageCache {
  public:
    /// fdatasync() then POSIX_FADV_DONTNEED on an open file; what failed, empty on success.
    static QString evict(int fd);
    /// The same for a file by path.
    static QString evict(const QString& path);
    /// The whole file as read from its medium after evict(); nullopt when that fails.
    static std::optional<QByteArray> readFromMedium(const QString& path);
};
