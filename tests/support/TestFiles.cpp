#include "TestFiles.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>

QString TestFiles::write(const QString& path, const QByteArray& bytes) {
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    const bool ok = file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
    EXPECT_TRUE(ok) << path.toStdString();
    return path;
}

QByteArray TestFiles::read(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

QByteArray TestFiles::randomBytes(qsizetype size, quint32 seed) {
    QByteArray bytes(size, Qt::Uninitialized);
    QRandomGenerator generator(seed);
    for (char& byte : bytes)
        byte = char(generator.generate() & 0xFF);
    return bytes;
}

QString TestFiles::sparse(const QString& path, qint64 size) {
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.resize(size)) << path.toStdString();
    return path;
}
