#pragma once
// A file written piece by piece that appears whole or not at all: pieces go to a hidden
// temporary beside it through a small buffer, and commit flushes it, reads it back from the
// medium (its SHA-512 against what was written) and renames it into place. Memory stays the
// buffer's whatever the size. One owner thread.

#include <QByteArray>

#include "DigestContext.h"
#include "FileLayer.h"
#include "Status.h"

class StreamedFile {
  public:
    StreamedFile(FileLayer& layer, const QByteArray& path);
    ~StreamedFile();  // an uncommitted file is removed
    StreamedFile(const StreamedFile&) = delete;
    StreamedFile& operator=(const StreamedFile&) = delete;

    void append(const QByteArray& bytes);
    /// Ok once the file is in place; otherwise the first failure ("write: No space left on
    /// device"), the path left to the caller, who names the file.
    Status commit();
    /// The SHA-512 (raw bytes) of everything appended; valid after a commit.
    const QByteArray& sha512() const { return sha512_; }

  private:
    void flushBuffer();
    void fail(const char* what, int code);

    FileLayer& layer_;
    const QByteArray path_;
    QByteArray temporary_;
    int fd_ = -1;
    QByteArray buffer_;
    off_t written_ = 0;
    Status failure_;
    struct Sha512;
    std::unique_ptr<Sha512> digest_;
    QByteArray sha512_;
    bool committed_ = false;
};
