// own_file.hpp - files in the product's directories, where other users may write too: a link, a
// FIFO or a file of another user is neither followed, waited for nor written to.
#pragma once

#include <sys/stat.h>

#include "common/unique_fd.hpp"

namespace ovrmail::log {

// Opens `path`, never a link, to read and write; `flags` may create it (0644 less the umask).
// Invalid with errno.
common::UniqueFd open_unfollowed(const char* path, int flags) noexcept;

// Whether the status is that of a regular file of the effective user with a single hard link.
bool is_own(const struct stat64& status) noexcept;

// Whether `fd` is such a file. `status`: out, its status. False with errno.
bool is_own_file(int fd, struct stat64& status) noexcept;

}  // namespace ovrmail::log
