// stream.hpp - sends a composition file of known size to the server.
#pragma once

#include <sys/types.h>

#include <cstdint>

namespace ovrmail::mime {

// SMTP_sendData for a file that had `size` bytes when it was finished. A file that has become
// shorter fails with kReadFailed (EIO), so that no end mark follows an incomplete mail.
std::int32_t stream_file(int sock, int fd, off64_t size, std::uint32_t* err) noexcept;

}  // namespace ovrmail::mime
