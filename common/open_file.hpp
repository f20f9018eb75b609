// open_file.hpp - opening a file that may be something else.
#pragma once

#include <sys/types.h>

#include "common/retry.hpp"
#include "common/unique_fd.hpp"

namespace ovrmail::common {

// open() with `flags` that never waits for the other end of a FIFO, or for a device: the caller
// looks at what was opened. A file on which another process holds a lease is waited for, as by any
// plain open. Close-on-exec, files of any size; at most so many attempts when signals interrupt it.
// Invalid with errno.
UniqueFd open_at_once(const char* path, int flags, mode_t mode = 0,
                      int attempts = kNoLimit) noexcept;

}  // namespace ovrmail::common
