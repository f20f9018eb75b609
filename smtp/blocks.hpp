// blocks.hpp - a buffer that is sent in units: the blocks of a mail, the header lines of a piece.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace ovrmail::smtp {

// Sends `bytes` in blocks of `block` bytes: the same bytes, results, clock and trace records as one
// SMTP_SetStartTime and SMTP_send for each block, in far fewer system calls. The clock restarts
// with each block, so each block has the whole budget. No bytes is success. Results and error word
// as SMTP_send.
// The caller sends more at once, blocks or the end mark: the last segment may wait for it.
std::int32_t send_blocks(int sock, std::span<const char> bytes, std::size_t block,
                         std::uint32_t* err) noexcept;

struct TracedLine {
    const char* point;  // under which the line is noted before it is sent
    std::string_view text;
};

// Sends `lines`, which must be adjacent in memory and not empty, with the trace records of a note
// and one SMTP_send for each; the clock runs on. Results and error word as SMTP_send.
std::int32_t send_lines(int sock, std::span<const TracedLine> lines, std::uint32_t* err) noexcept;

}  // namespace ovrmail::smtp
