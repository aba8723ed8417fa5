#pragma once
// Small file helpers the tests share: make a file (and its folders), read one back, fill one
// with reproducible noise, or make a large one that costs no disk.

#include <QByteArray>
#include <QString>

class TestFiles {
  public:
    /// Writes bytes to path, making its folders, and returns the path (a test failure if it
    /// can't).
    static QString write(const QString& path, const QByteArray& bytes = "x");
    /// The file's bytes, or "<missing>".
    static QByteArray read(const QString& path);
    static QByteArray randomBytes(qsizetype size, quint32 seed);
    /// A sparse file of that size.
    static QString sparse(const QString& path, qint64 size);
};
