#include "StreamedFile.h"

#include <openssl/evp.h>

#include <QRandomGenerator>
#include <cerrno>
#include <stdexcept>
#include <vector>

namespace {

constexpr qsizetype kBuffer = 1 << 20;

}  // namespace

struct StreamedFile::Sha512 {
    struct Free {
        void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
    };
    std::unique_ptr<EVP_MD_CTX, Free> context{EVP_MD_CTX_new()};
    Sha512() {
        if (!context || EVP_DigestInit_ex(context.get(), EVP_sha512(), nullptr) != 1)
            throw std::runtime_error("SHA-512 initialisation failed");
    }
    void update(const char* data, std::size_t size) { EVP_DigestUpdate(context.get(), data, size); }
    QByteArray finish() {
        unsigned char out[EVP_MAX_MD_SIZE];
        unsigned int length = 0;
        EVP_DigestFinal_ex(context.get(), out, &length);
        return QByteArray(reinterpret_cast<const char*>(out), int(length));
    }
};

StreamedFile::StreamedFile(FileLayer& layer, const QByteArray& path)
    : layer_(layer), path_(path), digest_(std::make_unique<Sha512>()) {
    const qsizetype slash = path.lastIndexOf('/');
    temporary_ = path.left(slash + 1) + '.' + path.mid(slash + 1) + '.' +
                 QByteArray::number(QRandomGenerator::global()->generate(), 16);
    fd_ = layer_.openReadWrite(temporary_);
    if (fd_ < 0)
        fail("create", errno);
    buffer_.reserve(kBuffer);
}

StreamedFile::~StreamedFile() {
    if (fd_ >= 0)
        layer_.close(fd_);
    if (!committed_)
        layer_.removeFile(temporary_);
}

void StreamedFile::fail(const char* what, int code) {
    if (failure_.ok())
        failure_ = Status::fromErrno(QLatin1String(what), QString(), code);
}

void StreamedFile::append(const QByteArray& bytes) {
    digest_->update(bytes.constData(), std::size_t(bytes.size()));
    buffer_ += bytes;
    if (buffer_.size() >= kBuffer)
        flushBuffer();
}

void StreamedFile::flushBuffer() {
    for (qsizetype done = 0; failure_.ok() && done < buffer_.size();) {
        const ssize_t n = layer_.write(fd_, buffer_.constData() + done,
                                       std::size_t(buffer_.size() - done), written_);
        if (n <= 0) {
            fail("write", n < 0 ? errno : ENOSPC);
            break;
        }
        done += n;
        written_ += n;
    }
    buffer_.clear();
}

Status StreamedFile::commit() {
    flushBuffer();
    sha512_ = digest_->finish();
    if (failure_.ok() && layer_.flushData(fd_) != 0)
        fail("flush", errno);
    // What the medium holds, read back past the page cache, must be what was written.
    if (failure_.ok()) {
        layer_.dropCache(fd_, 0, 0);
        Sha512 back;
        std::vector<char> piece(kBuffer);
        off_t offset = 0;
        for (ssize_t n = 0; (n = layer_.read(fd_, piece.data(), piece.size(), offset)) != 0;) {
            if (n < 0) {
                fail("read back", errno);
                break;
            }
            back.update(piece.data(), std::size_t(n));
            offset += n;
        }
        if (failure_.ok() && (offset != written_ || back.finish() != sha512_))
            failure_ = Status::failure(QStringLiteral("read back"),
                                       QStringLiteral("the medium holds something else than was "
                                                      "written"));
    }
    if (fd_ >= 0 && layer_.close(fd_) != 0)
        fail("close", errno);
    fd_ = -1;
    if (failure_.ok() && layer_.rename(temporary_, path_) != 0)
        fail("rename", errno);
    if (!failure_.ok())
        return failure_;
    committed_ = true;
    // The new name itself must survive a power cut before anyone is told it exists.
    const QByteArray folder = path_.left(path_.lastIndexOf('/'));
    const int folderFd = layer_.openRead(folder.isEmpty() ? QByteArray("/") : folder);
    if (folderFd >= 0) {
        layer_.flushData(folderFd);
        layer_.close(folderFd);
    }
    return {};
}
