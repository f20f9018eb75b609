// ovrm_send_show.cpp - escapes what a terminal must not get; see ovrm_send_show.hpp.
//
// A character is looked at by its code point, which iconv gives: it refuses overlong forms and
// surrogates. Without that conversion everything beyond ASCII is escaped.
#include "ovrm_send_show.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <iostream>

#include "ovrmail_text.hpp"

namespace ovrm_send {
namespace {

using ovrmail::detail::Converter;

struct Range {
    std::uint32_t first;
    std::uint32_t last;
};
constexpr std::array kUnseen{
    Range{0x0000, 0x001F},     // C0 controls
    Range{0x007F, 0x009F},     // DEL, C1 controls
    Range{0x00AD, 0x00AD},     // soft hyphen
    Range{0x061C, 0x061C},     // Arabic letter mark
    Range{0x200B, 0x200F},     // no width, marks of direction
    Range{0x2028, 0x202E},     // separators, embeddings and overrides of direction
    Range{0x2060, 0x206F},     // no width, isolates of direction
    Range{0xFE00, 0xFE0F},     // variation selectors
    Range{0xFEFF, 0xFEFF},     // byte order mark
    Range{0xFFF9, 0xFFFB},     // annotations
    Range{0xE0000, 0xE0FFF}};  // tags

std::string hex(std::string_view bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
    }
    return text;
}

// Whether the bytes are one character; if so, which.
bool read_character(const Converter& to_ucs4, std::string_view bytes, std::uint32_t& code) {
    const std::string number = to_ucs4(bytes);
    code = 0;
    for (const char c : number) code = code << 8 | static_cast<unsigned char>(c);
    return number.size() == sizeof code;
}

bool is_visible(std::uint32_t code) {
    return std::none_of(kUnseen.begin(), kUnseen.end(), [=](const Range& range) {
        return code >= range.first && code <= range.last;
    });
}

std::atomic<bool> warnings_held = false;

void put(std::ostream& out, std::string_view head, std::string_view line) {
    out << std::string(head).append(shown(line)).append("\n") << std::flush;
}

}  // namespace

std::string shown(std::string_view text) {
    const Converter to_ucs4("UCS-4BE", "UTF-8");
    std::string out;
    for (std::uint32_t code = 0; !text.empty();) {
        const std::string_view bytes = ovrmail::detail::first_character(text);
        const bool is_ascii = bytes[0] >= ' ' && bytes[0] <= '~';
        const bool fits = is_ascii || (read_character(to_ucs4, bytes, code) && is_visible(code));
        out += fits ? std::string(bytes) : hex(bytes);
        text.remove_prefix(bytes.size());
    }
    return out;
}

bool is_utf8(std::string_view text) {
    const Converter to_ucs4("UCS-4BE", "UTF-8");
    for (std::uint32_t code = 0; !text.empty();) {
        const std::string_view bytes = ovrmail::detail::first_character(text);
        const bool is_ascii = static_cast<unsigned char>(bytes[0]) < 0x80;
        if (!is_ascii && !read_character(to_ucs4, bytes, code)) return false;
        text.remove_prefix(bytes.size());
    }
    return true;
}

void print(std::string_view line) { put(std::cout, "", line); }
void tell(std::string_view line) { put(std::cout, "ovrm-send: ", line); }
void complain(std::string_view line) { put(std::cerr, "ovrm-send: ", line); }
void warn(std::string_view line) {
    if (!warnings_held) put(std::cerr, "ovrm-send: warning: ", line);
}
void hold_warnings() { warnings_held = true; }

}  // namespace ovrm_send
