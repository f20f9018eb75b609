// iso2022.hpp - Shift_JIS to ISO-2022-JP (RFC 1468).
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace ovrmail::mime {

inline constexpr std::string_view kEnterTwoByte = "\x1b$B";  // to JIS X 0208
inline constexpr std::string_view kLeaveTwoByte = "\x1b(J";  // to JIS X 0201 Roman, never to ASCII

// The most that `length` bytes become, without NUL: k pairs separated by k - 1 single bytes take
// 3k - 1 bytes and become 8k + k - 1 = 3 * length + 2; a doubled leading dot takes the place of one
// of the pairs.
constexpr std::size_t iso2022_room(std::size_t length) noexcept { return 3 * length + 2; }

// The first dot from `from` on that a server could take for the first byte of a line, or npos: a
// dot at the start of the line, or behind a lone CR or LF, which some servers take for a line end.
// Such a dot is doubled (RFC 5321 section 4.5.2).
constexpr std::size_t next_dot_to_double(std::string_view line, std::size_t from) noexcept {
    std::size_t dot = line.find('.', from);
    while (dot != line.npos && dot != 0 && line[dot - 1] != '\r' && line[dot - 1] != '\n')
        dot = line.find('.', dot + 1);
    return dot;
}

// JIS X 0208 code of a pair whose first byte is a lead byte.
unsigned jis_code(unsigned char lead, unsigned char trail) noexcept;

// Converts a text that holds no NUL into `dst`, which has iso2022_room() for it; dots that may
// start a line are doubled. Returns the number of bytes written, no NUL behind them.
std::size_t to_iso2022(std::string_view src, std::span<char> dst) noexcept;

}  // namespace ovrmail::mime
