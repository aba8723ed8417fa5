#include "TestFiles.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <algorithm>
#include <vector>

#include "FileLayer.h"

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

std::map<QString, QByteArray> TestFiles::tree(const QString& root, const QStringList& leaveOut) {
    std::map<QString, QByteArray> files;
    QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString relative = it.next().mid(root.size());
        const QStringList parts = relative.split(u'/', Qt::SkipEmptyParts);
        if (std::none_of(parts.begin(), parts.end(),
                         [&](const QString& part) { return leaveOut.contains(part); }))
            files[relative] = read(it.filePath());
    }
    return files;
}

std::map<QByteArray, QByteArray> TestFiles::exactTree(const QByteArray& root,
                                                      const QList<QByteArray>& leaveOut) {
    std::map<QByteArray, QByteArray> entries;
    std::vector<FileLayer::Entry> names;
    if (FileLayer::posix().listFolder(root, &names) != 0)
        return entries;
    for (const FileLayer::Entry& entry : names) {
        if (leaveOut.contains(entry.name))
            continue;
        const QByteArray path = root + '/' + entry.name;
        const QByteArray relative = '/' + entry.name;
        struct stat status {};
        ::lstat(path.constData(), &status);
        if (S_ISLNK(status.st_mode)) {
            QByteArray target;
            FileLayer::posix().readLink(path, &target);
            entries[relative] = "-> " + target;
        } else if (S_ISDIR(status.st_mode)) {
            entries[relative] = "/";
            for (const auto& [below, content] : exactTree(path, leaveOut))
                entries[relative + below] = content;
        } else if (!S_ISREG(status.st_mode)) {
            entries[relative] = "special";
        } else {
            QFile file;
            const int fd = ::open(path.constData(), O_RDONLY | O_CLOEXEC);
            file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle);
            entries[relative] = file.readAll();
        }
    }
    return entries;
}

void TestFiles::removeTree(const QByteArray& root) {
    std::vector<FileLayer::Entry> names;
    FileLayer::posix().listFolder(root, &names);
    for (const FileLayer::Entry& entry : names) {
        const QByteArray path = root + '/' + entry.name;
        struct stat status {};
        if (::lstat(path.constData(), &status) == 0 && S_ISDIR(status.st_mode))
            removeTree(path);
        else
            ::unlink(path.constData());
    }
    ::rmdir(root.constData());
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
