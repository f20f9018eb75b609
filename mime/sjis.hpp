// sjis.hpp - the one test for Japanese text in Shift_JIS.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace ovrmail::mime {

// 0x81 to 0x9F and 0xE0 to 0xEF, one range when bit 5 is inverted. Half-width katakana (0xA0 to
// 0xDF) and the vendor range from 0xF0 count as single bytes.
constexpr bool is_sjis_lead(unsigned char byte) noexcept {
    return static_cast<unsigned char>((byte ^ 0x20U) - 0xA1U) < 0x2F;
}
constexpr bool is_sjis_lead(char byte) noexcept {
    return is_sjis_lead(static_cast<unsigned char>(byte));
}

// The number of bytes before the first lead byte. ASCII is skipped eight bytes at a time.
inline std::size_t find_sjis_lead(std::string_view text) noexcept {
    for (std::size_t at = 0;; ++at) {
        std::uint64_t word = 0;
        for (; text.size() - at >= sizeof word; at += sizeof word) {
            std::memcpy(&word, text.data() + at, sizeof word);
            if ((word & 0x8080808080808080) != 0) break;
        }
        while (at < text.size() && (text[at] & 0x80) == 0) ++at;
        if (at == text.size() || is_sjis_lead(text[at])) return at;
    }
}

inline bool holds_sjis_lead(std::string_view text) noexcept {
    return find_sjis_lead(text) != text.size();
}

}  // namespace ovrmail::mime
