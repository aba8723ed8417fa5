#pragma once
// Small file helpers the tests share: make a file (and its folders), read one back or a whole
// tree of them, fill one with reproducible noise, or make a large one that costs no disk.

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <map>

#include "QtPrinters.h"

class TestFiles {
  public:
    /// Writes bytes to path, making its folders, and returns the path (a test failure if it
    /// can't).
    static QString write(const QString& path, const QByteArray& bytes = "x");
    /// The file's bytes, or "<missing>".
    static QByteArray read(const QString& path);
    /// Every file below root, hidden ones too, as path relative to root ("/A/B") -> bytes;
    /// files with any path component named in leaveOut are left out.
    static std::map<QString, QByteArray> tree(const QString& root,
                                              const QStringList& leaveOut = {});
    /// Every entry below root as the file system holds it, names as bytes: a file's bytes, a
    /// link's "-> target", a folder's "/", anything else "special"; entries named in leaveOut (at
    /// any depth) left out.
    static std::map<QByteArray, QByteArray> exactTree(const QByteArray& root,
                                                      const QList<QByteArray>& leaveOut = {});
    /// Removes a folder and all below it by bytes, whatever the names (no links followed).
    static void removeTree(const QByteArray& root);
    static QByteArray randomBytes(qsizetype size, quint32 seed);
    /// A sparse file of that size.
    static QString sparse(const QString& path, qint64 size);
};
