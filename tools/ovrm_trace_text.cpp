// ovrm_trace_text.cpp - escapes and codes; see ovrm_trace_text.hpp.
//
// Rings and logs hold what a server sent and what callers wrote: no control character of theirs
// reaches the terminal, and no text of theirs begins a line.
#include "ovrm_trace_text.hpp"

#include <algorithm>

#include "ovrmail_text.hpp"

namespace ovrm_trace {
namespace {

using ovrmail::detail::Converter;

bool is_printable(char c) { return c >= ' ' && c <= '~'; }

// Appends the character as it may be seen.
void put_escaped(std::string& text, char c) {
    if (is_printable(c)) {
        text += c;
    } else if (c == '\n' || c == '\r') {
        text += c == '\n' ? "\\n" : "\\r";
    } else {
        text += hex({&c, 1}, "\\x");
    }
}

// U+FF61 to U+FF9F in UTF-8.
bool has_half_width_katakana(std::string_view utf8) {
    for (std::size_t at = utf8.find('\xEF'); at != utf8.npos; at = utf8.find('\xEF', at + 1)) {
        const std::string_view character = utf8.substr(at, 3);
        if (character >= "\xEF\xBD\xA1" && character <= "\xEF\xBE\x9F") return true;
    }
    return false;
}

// The text in UTF-8; empty when it is in none of the codes of a subject.
std::string from_japanese(std::string_view bytes) {
    static const Converter from_sjis("UTF-8", "SJIS");
    static const Converter from_euc("UTF-8", "EUC-JP");
    std::string sjis = from_sjis(bytes);
    if (!sjis.empty() && !has_half_width_katakana(sjis)) return sjis;
    std::string euc = from_euc(bytes);
    return euc.empty() ? sjis : euc;
}

std::string quoted_with(std::string_view bytes, bool is_text) {
    std::string text = "\"";
    for (const char c : bytes) {
        if (c == '"' || c == '\\') text += '\\';
        const bool stays = is_printable(c) || (is_text && static_cast<unsigned char>(c) >= 0x80);
        if (stays) {
            text += c;
        } else {
            text += hex({&c, 1}, "\\u00");
        }
    }
    return text + "\"";
}

}  // namespace

std::string escaped(std::string_view bytes) {
    std::string text;
    for (const char c : bytes) put_escaped(text, c);
    return text;
}

std::string decoded(std::string_view bytes) {
    if (std::all_of(bytes.begin(), bytes.end(), is_printable)) return std::string(bytes);
    const std::string utf8 = from_japanese(bytes);
    if (utf8.empty()) return escaped(bytes);
    std::string text;
    for (std::string_view rest = utf8; !rest.empty();) {
        const std::string_view character = ovrmail::detail::first_character(rest);
        text +=
            ovrmail::detail::can_be_shown(character) ? std::string(character) : escaped(character);
        rest.remove_prefix(character.size());
    }
    return text;
}

std::string hex(std::string_view bytes, std::string_view before, std::string_view after) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += before;
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
        text += after;
    }
    return text;
}

std::string ascii(std::string_view bytes) {
    std::string text(bytes);
    std::replace_if(
        text.begin(), text.end(), [](char c) { return !is_printable(c); }, '.');
    return text;
}

std::string quoted(std::string_view bytes) { return quoted_with(bytes, false); }

std::string quoted_text(std::string_view text) { return quoted_with(text, true); }

}  // namespace ovrm_trace
