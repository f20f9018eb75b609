// socket_io.hpp - the system calls under both line clients: bounded waits, lines taken whole,
// sends that neither block nor raise SIGPIPE. errno is 0 after every call that does not return -1.
#pragma once

#include <poll.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <span>

namespace ovrmail::common {

enum : short { kReadable = POLLIN, kWritable = POLLOUT };

// Waits like select() on one descriptor, of any number: 1 ready, 0 time elapsed, -1 with errno
// (EBADF too). A negative time is none.
int wait_for(int fd, short what, std::int64_t seconds) noexcept;

// Result of a call that would have had to wait.
inline constexpr ssize_t kNotNow = -2;

enum class LineEnd { kCrLf, kLf };

// Takes what has arrived of a line, at most to the end of the line and never what lies behind it.
// `line[0, filled)` holds the beginning; the rest is filled in, and what is not filled is zero.
// Returns the bytes taken, 0 when the peer has closed, kNotNow, or -1 with errno.
// `more` tells whether something was seen behind the bytes taken.
ssize_t take_line(int fd, std::span<char> line, std::size_t filled, LineEnd end,
                  bool* more) noexcept;

// Whether line[0, filled) is complete.
bool ends_line(std::span<const char> line, std::size_t filled, LineEnd end) noexcept;

// Whether more bytes follow at once: the kernel then keeps a started segment for them.
enum class Follow { kNothing, kMore };

// send() that returns at once (kNotNow: no room) and reports a lost peer as EPIPE only.
ssize_t send_some(int fd, std::span<const char> bytes, Follow follow = Follow::kNothing) noexcept;

}  // namespace ovrmail::common
