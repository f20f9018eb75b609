// stream.hpp - a composition file of known size on its way to the server.
#pragma once

#include <sys/types.h>

#include <cstdint>

namespace ovrmail::mime {

// SMTP_sendData for a file that had `size` bytes when it was finished. One that is shorter by now
// fails with kReadFailed (EIO), so that no end mark is set behind half a mail.
std::int32_t stream_file(int sock, int fd, off64_t size, std::uint32_t* err) noexcept;

}  // namespace ovrmail::mime
