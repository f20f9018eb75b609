// socket_io.hpp - the system calls under the line engine: bounded waits, lines taken whole, sends
// that neither block nor raise SIGPIPE. errno is 0 after every call that does not return -1.
#pragma once

#include <poll.h>
#include <sys/types.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace ovrmail::net {

// The longest line of a reply that is taken at once.
inline constexpr std::size_t kReplySize = 1028;

enum : short { kReadable = POLLIN, kWritable = POLLOUT };

// Waits like select() on one descriptor, of any number: 1 ready, 0 time elapsed, -1 with errno
// (EBADF too). A negative time counts as 0.
int wait_for(int fd, short what, std::int64_t seconds) noexcept;

// Result of a call that would block.
inline constexpr ssize_t kNotNow = -2;

enum class LineEnd { kCrLf, kLf };

// Bytes seen on a socket behind the last line taken, and still in it: the lines of a reply arrive
// together. For one reader of one reply: nothing else may read from the socket meanwhile.
class SeenAhead {
public:
    SeenAhead() noexcept = default;
    SeenAhead(const SeenAhead&) = delete;  // text_ points into bytes_
    SeenAhead& operator=(const SeenAhead&) = delete;

    [[nodiscard]] bool empty() const noexcept { return text_.empty(); }
    [[nodiscard]] std::string_view text() const noexcept { return text_; }
    void keep(std::span<const char> bytes) noexcept {
        text_ = {bytes_.data(), std::min(bytes.size(), bytes_.size())};
        std::copy_n(bytes.data(), text_.size(), bytes_.data());
    }
    void drop(std::size_t bytes) noexcept { text_.remove_prefix(bytes); }
    void clear() noexcept { text_ = {}; }

private:
    std::array<char, kReplySize> bytes_;
    std::string_view text_;
};

// Takes what has arrived of a line, never anything behind its end.
// `line[0, filled)` holds the beginning; the rest is filled in, and what is not filled is zero.
// Returns the bytes taken, 0 when the peer has closed, kNotNow, or -1 with errno.
// `ahead`, which may be null, saves a second look at bytes that were seen before.
ssize_t take_line(int fd, std::span<char> line, std::size_t filled, LineEnd end,
                  SeenAhead* ahead) noexcept;

// Whether line[0, filled) is complete.
bool ends_line(std::span<const char> line, std::size_t filled, LineEnd end) noexcept;

// Whether more bytes follow at once: the kernel then holds back an incomplete segment for them.
enum class Follow { kNothing, kMore };

// send() that returns at once (kNotNow: no room) and reports a lost peer by EPIPE, not by SIGPIPE.
ssize_t send_some(int fd, std::span<const char> bytes, Follow follow = Follow::kNothing) noexcept;

}  // namespace ovrmail::net
