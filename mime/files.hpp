// files.hpp - opens the files of a mail, and reports the failures of file calls.
#pragma once

#include <cstdint>

#include "common/unique_fd.hpp"
#include "log/trace_scope.hpp"
#include "mime/result.hpp"

namespace ovrmail::mime {

// Invalid when the file cannot be opened, or is a FIFO, a device or a socket, which would be sent
// as an empty file or never end (EINVAL); errno tells why. A null path names no file.
common::UniqueFd open_to_read(const char* path) noexcept;

// Ends the frame with `result`, which is returned. `error` goes to `err` and into the trace record.
std::int32_t fail(log::TraceScope& trace, const char* point, Result result, int error,
                  std::uint32_t* err) noexcept;

}  // namespace ovrmail::mime
