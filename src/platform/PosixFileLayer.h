#pragma once
// The real file system behind FileLayer. Stateless.

#include "FileLayer.h"

class PosixFileLayer : public FileLayer {
  public:
    int openRead(const QByteArray& path) override;
    int openReadWrite(const QByteArray& path) override;
    ssize_t read(int fd, void* buffer, size_t size, off_t offset) override;
    ssize_t write(int fd, const void* buffer, size_t size, off_t offset) override;
    int close(int fd) override;
    int status(const QByteArray& path, struct stat* status) override;
    int linkStatus(const QByteArray& path, struct stat* status) override;
    bool applyAttributes(const QByteArray& path, const struct stat& attributes) override;
    void adviseSequential(int fd) override;
    void startWriteback(int fd, off_t offset, size_t size) override;
    void prefetch(const QByteArray& path) override;
    void readAhead(int fd) override;
    int flushRange(int fd, off_t offset, size_t size) override;
    int flushData(int fd) override;
    int flushFileSystem(int fd) override;
    void dropCache(int fd, off_t offset, size_t size) override;
    bool needsFileFlush(int fd) override;
    int listFolder(const QByteArray& path, std::vector<Entry>* entries) override;
    int readLink(const QByteArray& path, QByteArray* target) override;
    int makeLink(const QByteArray& target, const QByteArray& path) override;
    int makeFolder(const QByteArray& path) override;
    int createNew(const QByteArray& path) override;
    int freeSpace(const QByteArray& path, Space* space) override;
    int attribute(const QByteArray& path, const QByteArray& name, QByteArray* value) override;
    int setAttribute(const QByteArray& path, const QByteArray& name,
                     const QByteArray& value) override;
    int removeAttribute(const QByteArray& path, const QByteArray& name) override;
    int removeFile(const QByteArray& path) override;
    int removeFolder(const QByteArray& path) override;
    int rename(const QByteArray& from, const QByteArray& to) override;
    int setTimes(const QByteArray& path, const struct stat& attributes) override;
};
