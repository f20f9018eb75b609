// iso2022.cpp - SMTP_sjistojis, SMTP_toISO2022: Shift_JIS text as it goes on the wire.
//
// Called for each line of a Japanese text part. Owns no state. ISO-2022-JP is RFC 1468, the
// doubling of a leading dot RFC 5321 section 4.5.2.
#include "mime/iso2022.hpp"

#include <array>
#include <bit>
#include <cassert>
#include <cstdint>
#include <cstring>

#include "common/text.hpp"
#include "mime.h"
#include "mime/sjis.hpp"

namespace ovrmail::mime {
namespace {

// What is subtracted for a trail byte, beside the lead byte's part; 0 marks an invalid trail byte.
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

// Eight pairs at once, the first byte of each in the low half of its lane. True when all of them
// are valid; only then is dst written.
using Lanes = std::uint16_t __attribute__((vector_size(16)));

bool convert_eight_pairs(const char* src, char* dst) noexcept {
    Lanes pairs;
    std::memcpy(&pairs, src, sizeof pairs);
    const Lanes lead = pairs & 0xFF;
    const Lanes trail = pairs >> 8;
    // A true comparison sets all bits of its lane, which is -1.
    const auto valid = ((lead ^ 0x20) - 0xA1 < 0x2F) & (trail - 0x40 <= 0xBC) & (trail != 0x7F);
    std::array<std::uint64_t, 2> all;
    std::memcpy(all.data(), &valid, sizeof all);
    if ((all[0] & all[1]) != ~std::uint64_t{0}) return false;
    // Two rows of 94 for each lead byte; trail bytes from 0x9F are in the second.
    const auto second = reinterpret_cast<Lanes>(trail >= 0x9F);
    const auto high_lead = reinterpret_cast<Lanes>(lead >= 0xE0);
    const auto behind_gap = reinterpret_cast<Lanes>(trail >= 0x80);
    const Lanes row = lead * 2 - 0xE1 - (high_lead & 0x80) - second;
    const Lanes cell = trail - 0x1F - (behind_gap & 1) - (second & 0x5E);
    pairs = row | cell << 8;
    std::memcpy(dst, &pairs, sizeof pairs);
    return true;
}

// A lead byte in front of CR LF has no second byte: the CR belongs to the line end.
bool is_lone_lead(std::string_view text) noexcept {
    return common::skip(text, 1).starts_with("\r\n");
}

// Appends single bytes; the first run is at the start of the line.
char* append_single(char* dst, std::string_view single, bool first) noexcept {
    for (std::size_t dot = next_dot_to_double(single, first ? 0 : 1); dot != single.npos;
         dot = next_dot_to_double(single, 1)) {
        dst = append(dst, single.substr(0, dot));
        *dst++ = '.';
        single.remove_prefix(dot);
    }
    return append(dst, single);
}

// Converts pairs until the next byte is no lead byte with a second byte.
char* convert_pairs(std::string_view& src, char* dst) noexcept {
    const char* at = src.data();
    const char* const end = at + src.size();
    if constexpr (std::endian::native == std::endian::little)
        for (; end - at >= 16 && convert_eight_pairs(at, dst); at += 16) dst += 16;
    for (; end - at >= 2 && is_sjis_lead(*at); at += 2, dst += 2) {
        if (is_lone_lead({at, end})) break;
        const unsigned code =
            jis_code(static_cast<unsigned char>(at[0]), static_cast<unsigned char>(at[1]));
        dst[0] = static_cast<char>(code >> 8);
        dst[1] = static_cast<char>(code);
    }
    src.remove_prefix(static_cast<std::size_t>(at - src.data()));
    return dst;
}

}  // namespace

// Kept: a pair with an invalid trail byte becomes a zero byte and a value. Callers rely on this
// documented result, and those that handle the line as a text end it at the zero byte.
unsigned jis_code(unsigned char lead, unsigned char trail) noexcept {
    const unsigned offset = kTrailOffset[trail];
    if (offset == 0) return static_cast<unsigned>(lead | trail);
    return lead * 512U + trail - (lead < 0xE0 ? 0xE000U : 0x16000U) - offset;
}

std::size_t to_iso2022(std::string_view src, std::span<char> room) noexcept {
    assert(room.size() >= iso2022_room(src.size()));
    char* dst = room.data();
    for (bool first = true; !src.empty(); first = false) {
        const std::string_view single = src.substr(0, find_sjis_lead(src));
        dst = append_single(dst, single, first);
        src.remove_prefix(single.size());
        if (src.size() < 2) break;  // the end, or a single lead byte at the end
        if (is_lone_lead(src)) {
            *dst++ = src.front();
            src.remove_prefix(1);
            continue;
        }
        dst = append(dst, kEnterTwoByte);
        dst = convert_pairs(src, dst);
        dst = append(dst, kLeaveTwoByte);
    }
    return static_cast<std::size_t>(dst - room.data());
}

}  // namespace ovrmail::mime

std::uint32_t SMTP_sjistojis(std::uint32_t code) noexcept {
    const std::uint32_t lead = code >> 8;
    if (lead > 0xFF || !ovrmail::mime::is_sjis_lead(static_cast<unsigned char>(lead))) return 0;
    return ovrmail::mime::jis_code(static_cast<unsigned char>(lead),
                                   static_cast<unsigned char>(code));
}

void SMTP_toISO2022(const char* src, char* dst) noexcept {
    using namespace ovrmail::mime;
    if (dst == nullptr) return;
    const std::string_view line = src != nullptr ? src : "";
    dst[to_iso2022(line, {dst, iso2022_room(line.size())})] = '\0';
}
