// iso2022.hpp - Shift_JIS to ISO-2022-JP (RFC 1468).
#pragma once

#include <cstddef>
#include <string_view>

namespace ovrmail::mime {

inline constexpr std::string_view kEnterTwoByte = "\x1b$B";  // to JIS X 0208
inline constexpr std::string_view kLeaveTwoByte = "\x1b(J";  // to JIS X 0201 Roman, never to ASCII

// The most that `length` bytes become, without NUL: k pairs parted by k - 1 single bytes take
// 3k - 1 bytes and become 8k + k - 1 = 3 * length + 2; a doubled leading dot stands in place of
// one of the pairs.
constexpr std::size_t iso2022_room(std::size_t length) noexcept { return 3 * length + 2; }

// JIS X 0208 code of a pair whose first byte is a lead byte.
unsigned jis_code(unsigned char lead, unsigned char trail) noexcept;

// Converts a text that holds no NUL. Returns the end of what was written, no NUL there.
char* to_iso2022(std::string_view src, char* dst) noexcept;

}  // namespace ovrmail::mime
