// session_buffers.hpp - the reply and command buffers of the SMTP conversation.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

#include "net/socket_io.hpp"

namespace ovrmail::smtp {

using net::kReplySize;
inline constexpr std::size_t kCommandSize = 4104;

// Last line of the last reply, as received.
std::span<char, kReplySize> reply_buffer() noexcept;

// The same as a text: a NUL always follows the buffer.
const char* reply_text() noexcept;

// The text of the reply line from its fifth character on, behind the code and its separator.
std::string_view reply_detail() noexcept;

// "250-..." is followed by another line, "250 ..." and a bare "250" are not.
inline bool goes_on(std::span<const char> line) noexcept {
    constexpr std::size_t kMark = 3;
    return line.size() > kMark && line[kMark] == '-';
}

// Replies are judged by their first digit alone (RFC 5321 4.2.1).
inline bool replied(char digit) noexcept { return reply_buffer().front() == digit; }

// For a step that the library refuses itself: the server's last reply does not belong to it.
void clear_reply() noexcept;

std::span<char, kCommandSize> command_buffer() noexcept;

}  // namespace ovrmail::smtp
