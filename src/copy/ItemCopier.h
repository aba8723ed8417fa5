#pragma once
// Copies a file, link or whole folder to a path that must not exist yet, keeping permissions
// and modification times; a failed copy leaves nothing behind under the destination name.

#include <sys/stat.h>

#include <QByteArray>
#include <QString>

#include "Status.h"

class ItemCopier {
  public:
    /// Ok when the copy is complete; otherwise the path that failed and why.
    static Status copy(const QString& source, const QString& destination);

  private:
    static Status copyEntry(const QByteArray& source, const QByteArray& destination);
    static Status copyRegularFile(const QByteArray& source, const QByteArray& destination,
                                  const struct stat& status);
    static Status copyFolder(const QByteArray& source, const QByteArray& destination,
                             const struct stat& status);
    static Status copyLink(const QByteArray& source, const QByteArray& destination);
};
