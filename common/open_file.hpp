// open_file.hpp - opens a file that may be a FIFO or a device.
#pragma once

#include <sys/types.h>

#include "common/retry.hpp"
#include "common/unique_fd.hpp"

namespace ovrmail::common {

// open() with `flags` that never waits for the other end of a FIFO, or for a device: the caller
// checks what was opened. It does wait while another process holds a lease on the file, as a plain
// open does. Close-on-exec, files of any size; at most `attempts` calls when signals interrupt it.
// Invalid with errno.
UniqueFd open_at_once(const char* path, int flags, mode_t mode = 0,
                      int attempts = kNoLimit) noexcept;

}  // namespace ovrmail::common
