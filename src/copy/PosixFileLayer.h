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
    bool applyAttributes(const QByteArray& path, const struct stat& attributes) override;
    void adviseSequential(int fd) override;
    void startWriteback(int fd, off_t offset, size_t size) override;
};
