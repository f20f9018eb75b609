// files.hpp - what every step that works on files shares: opening one, and reporting a failure.
#pragma once

#include <cstdint>

#include "common/unique_fd.hpp"
#include "log/trace_scope.hpp"
#include "mime/result.hpp"

namespace ovrmail::mime {

// Invalid when the file cannot be opened, or is a FIFO, a device or a socket, which would go out as
// an empty file or never end (EINVAL); errno tells why. A null path names no file.
common::UniqueFd open_to_read(const char* path) noexcept;

// One failure: the system error goes to the caller and into the trace record that ends the frame.
std::int32_t fail(log::TraceScope& trace, const char* point, Result result, int error,
                  std::uint32_t* err) noexcept;

}  // namespace ovrmail::mime
