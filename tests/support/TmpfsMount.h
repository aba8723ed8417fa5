#pragma once
// A size-limited tmpfs mounted on a temporary folder of its own, to put an image file in
// storage that really runs out. Unmounted (lazily if still busy) when it goes.
//
// Not thread-safe; one test thread owns it.

#include <QString>
#include <QTemporaryDir>

class TmpfsMount {
  public:
    /// Mounts a tmpfs of sizeBytes (rounded up to pages); see ok().
    explicit TmpfsMount(qint64 sizeBytes);
    ~TmpfsMount();
    TmpfsMount(const TmpfsMount&) = delete;
    TmpfsMount& operator=(const TmpfsMount&) = delete;

    bool ok() const { return error_.isEmpty(); }
    QString error() const { return error_; }

    QString path() const { return folder_.path(); }
    QString filePath(const QString& name) const { return folder_.filePath(name); }

    /// Bytes in use, from statvfs; -1 when it can't tell.
    qint64 usedBytes() const;
    /// Resizes it so that exactly roomBytes (rounded up to pages) are left free.
    bool leaveRoom(qint64 roomBytes);

  private:
    bool fail(const QString& message);

    QTemporaryDir folder_;
    QString error_;
    bool mounted_ = false;
};
