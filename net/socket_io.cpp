// socket_io.cpp - bounded waits, whole lines and sends on one socket; see socket_io.hpp.
//
// Called by lines.cpp for every command, reply and block of a mail. No state: the bytes seen ahead
// belong to the caller. Line ends: RFC 5321 section 2.3.8, RFC 1939 section 3.
#include "net/socket_io.hpp"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

namespace ovrmail::net {
namespace {

constexpr std::int64_t kLongestWait = INT_MAX / 1000;

// Length through the first line end at or behind `from`, or `filled` without one.
std::size_t line_length(std::span<const char> line, std::size_t from, std::size_t filled,
                        LineEnd end) noexcept {
    while (from < filled) {
        const void* const lf = std::memchr(line.data() + from, '\n', filled - from);
        if (lf == nullptr) break;
        from = static_cast<std::size_t>(static_cast<const char*>(lf) - line.data()) + 1;
        if (ends_line(line, from, end)) return from;
    }
    return filled;
}

// Length of the line that `ahead` begins with, or 0 when that line is not complete.
std::size_t whole_line(const SeenAhead* ahead, LineEnd end) noexcept {
    if (ahead == nullptr) return 0;
    const std::span<const char> text(ahead->text());
    const std::size_t length = line_length(text, 0, text.size(), end);
    return ends_line(text, length, end) ? length : 0;
}

// A call that succeeds does not change errno, and errno is reported for a peer that has closed: it
// is therefore set to 0 before every call.
template <class Call>
ssize_t without_waiting(Call call) noexcept {
    errno = 0;
    const ssize_t result = call();
    if (result != -1 || (errno != EAGAIN && errno != EWOULDBLOCK)) return result;
    errno = 0;
    return kNotNow;
}

ssize_t receive(int fd, std::span<char> room, int flags) noexcept {
    return without_waiting(
        [&] { return ::recv(fd, room.data(), room.size(), flags | MSG_DONTWAIT); });
}

}  // namespace

int wait_for(int fd, short what, std::int64_t seconds) noexcept {
    pollfd entry{fd, what, 0};
    const auto wait = std::clamp<std::int64_t>(seconds, 0, kLongestWait);
    errno = 0;
    // poll() ignores a negative descriptor and would only wait.
    const int ready = fd < 0 ? 0 : ::poll(&entry, 1, static_cast<int>(wait * 1000));
    if (fd >= 0 && (entry.revents & POLLNVAL) == 0) return ready;
    errno = EBADF;
    return -1;
}

bool ends_line(std::span<const char> line, std::size_t filled, LineEnd end) noexcept {
    if (filled == 0 || line[filled - 1] != '\n') return false;
    return end == LineEnd::kLf || (filled >= 2 && line[filled - 2] == '\r');
}

ssize_t take_line(int fd, std::span<char> line, std::size_t filled, LineEnd end,
                  SeenAhead* ahead) noexcept {
    const std::span<char> room = line.subspan(filled);
    if (const std::size_t known = filled == 0 ? whole_line(ahead, end) : 0;
        known != 0 && known <= room.size()) {
        const ssize_t taken = receive(fd, room.first(known), 0);
        taken == static_cast<ssize_t>(known) ? ahead->drop(known) : ahead->clear();
        return taken;
    }
    if (ahead != nullptr) ahead->clear();
    const ssize_t seen = receive(fd, room, MSG_PEEK);
    if (seen <= 0) return seen;
    const std::size_t arrived = filled + static_cast<std::size_t>(seen);
    const std::size_t wanted = line_length(line, filled, arrived, end);
    if (ahead != nullptr) ahead->keep(line.subspan(wanted, arrived - wanted));
    const ssize_t taken = receive(fd, line.subspan(filled, wanted - filled), 0);
    const std::size_t kept = filled + static_cast<std::size_t>(std::max<ssize_t>(taken, 0));
    std::memset(line.data() + kept, 0, arrived - kept);
    if (ahead != nullptr && kept != wanted) ahead->clear();
    return taken;
}

ssize_t send_some(int fd, std::span<const char> bytes, Follow follow) noexcept {
    const int flags = MSG_NOSIGNAL | MSG_DONTWAIT | (follow == Follow::kMore ? MSG_MORE : 0);
    return without_waiting([&] { return ::send(fd, bytes.data(), bytes.size(), flags); });
}

}  // namespace ovrmail::net
