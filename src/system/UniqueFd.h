#pragma once
// Owns one POSIX file descriptor and closes it when it goes out of scope.

#include <unistd.h>

#include <utility>

class UniqueFd {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        reset(other.release());
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    /// Gives up ownership without closing.
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1) {
        if (fd_ >= 0) {
            ::close(fd_);
        }
        fd_ = fd;
    }
    /// Closes now and reports close(2)'s result (0 on success), so late write errors surface.
    int close() { return fd_ >= 0 ? ::close(std::exchange(fd_, -1)) : 0; }

  private:
    int fd_ = -1;
};
