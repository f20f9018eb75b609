// iso2022.cpp - SMTP_sjistojis, SMTP_toISO2022: Shift_JIS text as it goes on the wire.
//
// Called for each line of a Japanese text part. Owns no state. ISO-2022-JP is RFC 1468, the
// doubling of a leading dot RFC 5321 section 4.5.2.
#include "mime/iso2022.hpp"

#include <array>
#include <cstdint>
#include <cstring>

#include "mime.h"
#include "mime/sjis.hpp"

namespace ovrmail::mime {
namespace {

// What the trail byte takes off, beside the lead byte's own; 0 marks an invalid trail byte.
constexpr auto kTrailOffset = [] {
    std::array<std::uint16_t, 256> offset{};
    for (unsigned trail = 0x40; trail <= 0x7E; ++trail) offset[trail] = 0x11F;
    for (unsigned trail = 0x80; trail <= 0x9E; ++trail) offset[trail] = 0x120;
    for (unsigned trail = 0x9F; trail <= 0xFC; ++trail) offset[trail] = 0x07E;
    return offset;
}();

char* append(char* dst, std::string_view text) noexcept {
    std::memcpy(dst, text.data(), text.size());
    return dst + text.size();
}

// Copies up to the next lead byte, eight bytes at a time through plain ASCII.
char* copy_single_bytes(std::string_view& src, char* dst) noexcept {
    const char* at = src.data();
    const char* const end = at + src.size();
    for (;;) {
        std::uint64_t word = 0;
        while (end - at >= 8) {
            std::memcpy(&word, at, 8);
            if ((word & 0x8080808080808080U) != 0) break;
            std::memcpy(dst, &word, 8);
            at += 8;
            dst += 8;
        }
        if (at == end || is_sjis_lead(*at)) break;
        *dst++ = *at++;
    }
    src.remove_prefix(static_cast<std::size_t>(at - src.data()));
    return dst;
}

// Converts pairs as long as lead bytes with a second byte follow each other.
char* convert_pairs(std::string_view& src, char* dst) noexcept {
    const char* at = src.data();
    const char* const end = at + src.size();
    for (; end - at >= 2 && is_sjis_lead(*at); at += 2, dst += 2) {
        const unsigned code =
            jis_code(static_cast<unsigned char>(at[0]), static_cast<unsigned char>(at[1]));
        dst[0] = static_cast<char>(code >> 8);
        dst[1] = static_cast<char>(code);
    }
    src.remove_prefix(static_cast<std::size_t>(at - src.data()));
    return dst;
}

}  // namespace

// Kept: a pair with an invalid trail byte becomes a zero byte and a value; the zero byte then ends
// the line for whoever handles it as a text.
unsigned jis_code(unsigned char lead, unsigned char trail) noexcept {
    const unsigned offset = kTrailOffset[trail];
    if (offset == 0) return static_cast<unsigned>(lead | trail);
    return lead * 512U + trail - (lead < 0xE0 ? 0xE000U : 0x16000U) - offset;
}

char* to_iso2022(std::string_view src, char* dst) noexcept {
    if (src.starts_with('.')) *dst++ = '.';
    while (!src.empty()) {
        dst = copy_single_bytes(src, dst);
        if (src.size() < 2) break;  // the end, or a lead byte alone before it
        dst = append(dst, kEnterTwoByte);
        dst = convert_pairs(src, dst);
        dst = append(dst, kLeaveTwoByte);
    }
    return dst;
}

}  // namespace ovrmail::mime

std::uint32_t SMTP_sjistojis(std::uint32_t code) noexcept {
    const std::uint32_t lead = code >> 8;
    if (lead > 0xFF || !ovrmail::mime::is_sjis_lead(static_cast<unsigned char>(lead))) return 0;
    return ovrmail::mime::jis_code(static_cast<unsigned char>(lead),
                                   static_cast<unsigned char>(code));
}

void SMTP_toISO2022(const char* src, char* dst) noexcept {
    if (dst == nullptr) return;
    *ovrmail::mime::to_iso2022(src != nullptr ? src : "", dst) = '\0';
}
