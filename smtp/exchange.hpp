// exchange.hpp - one command and its reply, with both lines in the mail log.
#pragma once

#include <cstdint>
#include <string_view>

namespace ovrmail::smtp {

struct Command {
    std::string_view wire;  // the bytes to send, CR LF included
    const char* shown;      // the text for the mail log
    bool traced = false;    // whether the trace gets the bytes
};

// Sends the command, then logs its `shown` text. 0 or the failure of the send.
std::int32_t send_command(int sock, const Command& command, std::uint32_t* err) noexcept;

// Reads a whole reply into the reply buffer and logs its last line. 0 or the failure of the read.
std::int32_t read_reply(int sock, std::uint32_t* err) noexcept;

// Logs the line in the reply buffer.
void log_reply_line() noexcept;

// send_command and read_reply. The reply is judged by the caller: replied('2').
std::int32_t exchange(int sock, const Command& command, std::uint32_t* err) noexcept;

// A command without secrets: a NUL-terminated text that log and trace get as it is.
inline Command plain(std::string_view terminated) noexcept {
    return {terminated, terminated.data(), true};
}

}  // namespace ovrmail::smtp
