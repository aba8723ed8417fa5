#include "FileLayer.h"

#include <cerrno>
#include <vector>

std::optional<QByteArray> FileLayer::readWhole(const QByteArray& path, std::size_t limit) {
    const int fd = openRead(path);
    if (fd < 0)
        return std::nullopt;
    QByteArray text;
    std::vector<char> buffer(1 << 16);
    ssize_t n = 0;
    while ((n = read(fd, buffer.data(), buffer.size(), off_t(text.size()))) > 0 &&
           std::size_t(text.size()) <= limit)
        text.append(buffer.data(), n);
    close(fd);
    if (n < 0 || std::size_t(text.size()) > limit)
        return std::nullopt;
    return text;
}

bool FileLayer::exists(const QByteArray& path) {
    struct stat status {};
    return linkStatus(path, &status) == 0;
}

int FileLayer::makeParents(const QByteArray& path) {
    const qsizetype slash = path.lastIndexOf('/');
    if (slash <= 0)
        return 0;
    const QByteArray parent = path.left(slash);
    struct stat status {};
    if (this->status(parent, &status) == 0)
        return S_ISDIR(status.st_mode) ? 0 : (errno = ENOTDIR, -1);
    if (makeParents(parent) != 0)
        return -1;
    return makeFolder(parent) == 0 || errno == EEXIST ? 0 : -1;
}

void FileLayer::removeTree(const QByteArray& path) {
    struct stat status {};
    if (linkStatus(path, &status) != 0)
        return;
    if (!S_ISDIR(status.st_mode)) {
        removeFile(path);
        return;
    }
    std::vector<Entry> entries;
    listFolder(path, &entries);
    for (const Entry& entry : entries)
        removeTree(path + '/' + entry.name);
    removeFolder(path);
}
