// unique_fd.hpp - owner of a descriptor: closes it once, keeps errno.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace ovrmail::common {

// Keeps errno during clean-up: the caller reads the error of the call that failed first.
class ErrnoKeeper {
public:
    ErrnoKeeper() noexcept : saved_(errno) {}
    ~ErrnoKeeper() { errno = saved_; }
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

private:
    int saved_;
};

class UniqueFd {
public:
    UniqueFd() noexcept = default;
    explicit UniqueFd(int fd) noexcept : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) reset(std::exchange(other.fd_, -1));
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() { reset(); }

    [[nodiscard]] int get() const noexcept { return fd_; }
    [[nodiscard]] bool valid() const noexcept { return fd_ >= 0; }
    [[nodiscard]] int release() noexcept { return std::exchange(fd_, -1); }

    // On Linux an interrupted close() has closed the descriptor: it is never repeated.
    void reset(int fd = -1) noexcept {
        const ErrnoKeeper keep;
        if (fd_ >= 0) ::close(fd_);  // allow: this is the owner
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

}  // namespace ovrmail::common
