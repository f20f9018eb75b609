// rewrite.hpp - replaces the content of a small file, wholly or not at all.
#pragma once

#include <string_view>

namespace ovrmail::toolkit {

// Replaces the content of the file at `path` by `content`; a missing file is created (0644 less the
// umask). The file keeps its owner, mode and links: it is written in place. Returns 0, or errno
// after putting the old content back as far as the disk allows:
//   - anything but a regular file is refused (EINVAL);
//   - memory and disk space are claimed before the first byte is changed;
//   - a write that fails or falls short (ENOSPC) is undone from memory.
// A file that was created and could not be written is left empty. Not covered: a crash between
// the first byte and the last, a file system that cannot write over its own blocks, and an error
// that only close() reports.
int rewrite_file(const char* path, std::string_view content) noexcept;

}  // namespace ovrmail::toolkit
