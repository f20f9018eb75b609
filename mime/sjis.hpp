// sjis.hpp - the one test that decides everywhere what is Japanese text in Shift_JIS.
#pragma once

namespace ovrmail::mime {

// 0x81 to 0x9F and 0xE0 to 0xEF, one range once bit 5 is turned over. Half-width katakana (0xA0 to
// 0xDF) and the vendor range from 0xF0 count as single bytes.
constexpr bool is_sjis_lead(unsigned char byte) noexcept {
    return static_cast<unsigned char>((byte ^ 0x20U) - 0xA1U) < 0x2F;
}
constexpr bool is_sjis_lead(char byte) noexcept {
    return is_sjis_lead(static_cast<unsigned char>(byte));
}

}  // namespace ovrmail::mime
