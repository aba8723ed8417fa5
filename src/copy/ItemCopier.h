#pragma once
// Copies a file, link or whole folder to a path that must not exist yet, keeping permissions
// and modification times; a failed copy leaves nothing behind under the destination name.

#include <sys/stat.h>

#include <QByteArray>
#include <QString>

class ItemCopier {
  public:
    /// True when the copy is complete; otherwise false with the reason in *error.
    static bool copy(const QString& source, const QString& destination, QString* error);

  private:
    static bool copyEntry(const QByteArray& source, const QByteArray& destination, QString* error);
    static bool copyRegularFile(const QByteArray& source, const QByteArray& destination,
                                const struct stat& status, QString* error);
    static bool copyFolder(const QByteArray& source, const QByteArray& destination,
                           const struct stat& status, QString* error);
    static bool copyLink(const QByteArray& source, const QByteArray& destination, QString* error);
};
