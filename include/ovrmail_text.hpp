// ovrmail_text.hpp - UTF-8 to the code in which the library expects text, and back: the part of
// ovrmail.hpp that knows what a mail can carry. Compiles and is of use without the rest.
#ifndef OVRMAIL_TEXT_HPP
#define OVRMAIL_TEXT_HPP

#include <iconv.h>

#include <algorithm>
#include <array>
#include <clocale>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "codeset.h"
#include "file_util.h"

namespace ovrmail {

// A character that a mail cannot carry.
struct Unsendable {
    std::size_t line;       // in the text, from 1
    std::size_t character;  // in the line, from 1
    std::string bytes;      // as they stand in the text

    // "line 3, character 7: cannot be sent: " with the character and its bytes in hexadecimal.
    [[nodiscard]] std::string text() const;
};

// A text in the code that the C functions expect.
struct Converted {
    std::string bytes;                   // EUC-JP in an EUC locale, else Shift_JIS
    std::vector<Unsendable> unsendable;  // what stands in bytes as the replacement
    bool has_converter = true;  // false: this system has no conversion, only ASCII can be sent
};

// Converts a text for the C functions, as send() does with subject and body. Code points that
// input methods produce for a character of JIS X 0208 under another name count as that character.
//   utf8         the text
//   replacement  stands for each character that cannot be sent
[[nodiscard]] Converted to_library_text(std::string_view utf8, char replacement = '?');

// The other way round, for a line of the mail log. Bytes that are no such text stay as they are.
[[nodiscard]] std::string from_library_text(std::string_view bytes);

namespace detail {

// A converter of iconv, character by character: the state begins anew with each call.
class Converter {
public:
    Converter(const char* to, const char* from) noexcept : handle_(::iconv_open(to, from)) {}
    ~Converter() {
        if (usable()) ::iconv_close(handle_);
    }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    [[nodiscard]] bool usable() const noexcept {
        return reinterpret_cast<std::intptr_t>(handle_) != -1;
    }

    // The text in the other code; empty when that has no such character.
    std::string operator()(std::string_view text) const {
        if (!usable()) return {};
        std::string bytes(text.size() * 3 + 4, '\0');
        char* in = const_cast<char*>(text.data());  // iconv only reads it
        std::size_t in_left = text.size();
        char* out = bytes.data();
        std::size_t out_left = bytes.size();
        ::iconv(handle_, nullptr, nullptr, nullptr, nullptr);
        if (::iconv(handle_, &in, &in_left, &out, &out_left) == static_cast<std::size_t>(-1))
            return {};
        bytes.resize(bytes.size() - out_left);
        return bytes;
    }

private:
    iconv_t handle_;
};

inline bool is_listed(const MailLangInfo* row, const char* locale) noexcept {
    constexpr std::int32_t kEndOfTable = 0;
    constexpr std::int32_t kExact = 1;
    for (; row->kind != kEndOfTable; ++row) {
        const int differs = row->kind == kExact ? std::strcmp(locale, row->name)
                                                : CheckString_NotUpLow(locale, row->name);
        if (differs == 0) return true;
    }
    return false;
}

// What the library takes a text for, by the locale of the process.
enum class TextCode { kShiftJis, kEucJp };

inline TextCode text_code() noexcept {
    const char* const locale = std::setlocale(LC_ALL, nullptr);
    const bool is_euc = locale != nullptr && is_listed(stEucLangInfo, locale);
    return is_euc ? TextCode::kEucJp : TextCode::kShiftJis;
}

inline const char* name_of(TextCode code) noexcept {
    return code == TextCode::kEucJp ? "EUC-JP" : "SJIS";
}

struct Twin {
    std::string_view typed;
    std::string_view standard;
};

// Code points that input methods produce on some systems for characters whose JIS X 0208 mapping
// names another one; and two that the converter would turn into ASCII characters.
inline constexpr std::array kTwins{
    Twin{"\xEF\xBD\x9E", "\xE3\x80\x9C"},   // U+FF5E fullwidth tilde: U+301C wave dash
    Twin{"\xEF\xBC\x8D", "\xE2\x88\x92"},   // U+FF0D fullwidth hyphen-minus: U+2212 minus sign
    Twin{"\xE2\x88\xA5", "\xE2\x80\x96"},   // U+2225 parallel to: U+2016 double vertical line
    Twin{"\xEF\xBF\xA0", "\xC2\xA2"},       // U+FFE0 fullwidth cent sign: U+00A2
    Twin{"\xEF\xBF\xA1", "\xC2\xA3"},       // U+FFE1 fullwidth pound sign: U+00A3
    Twin{"\xEF\xBF\xA2", "\xC2\xAC"},       // U+FFE2 fullwidth not sign: U+00AC
    Twin{"\xC2\xA5", "\xEF\xBF\xA5"},       // U+00A5 yen sign, not "\": U+FFE5 fullwidth yen sign
    Twin{"\xE2\x80\xBE", "\xEF\xBF\xA3"}};  // U+203E overline, not "~": U+FFE3 fullwidth macron

inline std::string_view standard_form(std::string_view character) noexcept {
    const auto twin = std::find_if(kTwins.begin(), kTwins.end(),
                                   [=](const Twin& row) { return row.typed == character; });
    return twin == kTwins.end() ? character : twin->standard;
}

inline std::size_t announced_size(char lead) noexcept {
    const auto byte = static_cast<unsigned char>(lead);
    return byte < 0xC0 ? 1 : byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
}

// The first byte and the continuation bytes it announces, as far as they are there.
inline std::string_view first_character(std::string_view text) noexcept {
    const std::size_t most = std::min(announced_size(text[0]), text.size());
    std::size_t size = 1;
    while (size < most && (static_cast<unsigned char>(text[size]) & 0xC0) == 0x80) ++size;
    return text.substr(0, size);
}

// A whole character beyond ASCII and the control characters of U+0080 to U+009F.
inline bool can_be_shown(std::string_view character) noexcept {
    return character.size() > 1 && character.size() == announced_size(character[0]) &&
           character >= "\xC2\xA0";
}

// NUL ends the text for the library, ESC begins a code switch in the mail.
inline bool is_sendable_ascii(char c) noexcept {
    return static_cast<unsigned char>(c) < 0x80 && c != '\0' && c != '\x1B';
}

// JIS X 0208 takes two bytes in both codes. Half-width katakana, which the mail cannot carry, take
// one in Shift_JIS, and two that begin with 0x8E in EUC-JP.
inline bool is_jis_x_0208(TextCode code, std::string_view bytes) noexcept {
    return bytes.size() == 2 && !(code == TextCode::kEucJp && bytes[0] == '\x8E');
}

}  // namespace detail

inline std::string Unsendable::text() const {
    std::string words = "line " + std::to_string(line) + ", character " +
                        std::to_string(character) + ": cannot be sent:";
    if (detail::can_be_shown(bytes)) words += " " + bytes;
    for (const char byte : bytes) {
        constexpr const char* kDigits = "0123456789ABCDEF";
        const auto value = static_cast<unsigned char>(byte);
        words += {' ', kDigits[value >> 4], kDigits[value & 15]};
    }
    return words;
}

inline Converted to_library_text(std::string_view utf8, char replacement) {
    const detail::TextCode code = detail::text_code();
    const detail::Converter convert(detail::name_of(code), "UTF-8");
    Converted out;
    out.has_converter = convert.usable();
    std::size_t line = 1;
    std::size_t column = 0;
    for (std::size_t at = 0; at < utf8.size();) {
        const std::string_view character = detail::first_character(utf8.substr(at));
        const bool begins_line = at > 0 && utf8[at - 1] == '\n';
        line += begins_line ? 1 : 0;
        column = begins_line ? 1 : column + 1;
        at += character.size();
        if (detail::is_sendable_ascii(character[0])) {
            out.bytes += character;
            continue;
        }
        const std::string bytes = convert(detail::standard_form(character));
        if (detail::is_jis_x_0208(code, bytes)) {
            out.bytes += bytes;
            continue;
        }
        out.bytes += replacement;
        out.unsendable.push_back({line, column, std::string(character)});
    }
    return out;
}

inline std::string from_library_text(std::string_view bytes) {
    const detail::Converter convert("UTF-8", detail::name_of(detail::text_code()));
    std::string text = convert(bytes);
    return text.empty() ? std::string(bytes) : text;
}

}  // namespace ovrmail

#endif
