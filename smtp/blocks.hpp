// blocks.hpp - a buffer that leaves in units of its own: the blocks of a mail, the header lines of
// a piece.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace ovrmail::smtp {

// Sends `bytes` as a run of blocks of `block` bytes: the same bytes, results, clock and trace
// records as one SMTP_SetStartTime and SMTP_send for each block, in far fewer system calls. When
// the server takes only part, the clock restarts as the blocks go out, so each block has the whole
// budget. Nothing to send is success. Results and error word as SMTP_send.
// More is to follow at once, another run or the end mark: the last segment may wait for it.
std::int32_t send_blocks(int sock, std::span<const char> bytes, std::size_t block,
                         std::uint32_t* err) noexcept;

struct TracedLine {
    const char* point;  // under which the line is noted before it is sent
    std::string_view text;
};

// Sends `lines`, which must lie one behind the other in memory, as a note and one SMTP_send for
// each would (no empty ones; the clock runs on). Results and error word as SMTP_send.
std::int32_t send_lines(int sock, std::span<const TracedLine> lines, std::uint32_t* err) noexcept;

}  // namespace ovrmail::smtp
