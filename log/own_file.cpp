// own_file.cpp - opens files in directories where other users may write; see own_file.hpp.
//
// Called when a send opens its trace ring and its mail log. No state.
#include "log/own_file.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "common/open_file.hpp"

namespace ovrmail::log {
namespace {

constexpr mode_t kFileMode = 0644;
constexpr int kAttempts = 10;  // while signals interrupt it

}  // namespace

common::UniqueFd open_unfollowed(const char* path, int flags) noexcept {
    return common::open_at_once(path, flags | O_RDWR | O_NOFOLLOW, kFileMode, kAttempts);
}

bool is_own(const struct stat64& status) noexcept {
    return S_ISREG(status.st_mode) && status.st_uid == ::geteuid() && status.st_nlink == 1;
}

bool is_own_file(int fd, struct stat64& status) noexcept {
    if (::fstat64(fd, &status) != 0) return false;
    if (is_own(status)) return true;
    errno = EPERM;
    return false;
}

}  // namespace ovrmail::log
