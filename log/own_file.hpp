// own_file.hpp - files in the product's directories, where others may write, too: what somebody
// else laid there first is neither followed, waited for nor written to.
#pragma once

#include <sys/stat.h>

#include "common/unique_fd.hpp"

namespace ovrmail::log {

// Opens `path` itself, and no link, to read and write; `flags` may create it (0644 less the umask).
// Invalid with errno.
common::UniqueFd open_unfollowed(const char* path, int flags) noexcept;

// Whether that gave a regular file of the effective user with no other name. `status`, out, is its
// status. False with errno.
bool is_own_file(int fd, struct stat64& status) noexcept;

}  // namespace ovrmail::log
