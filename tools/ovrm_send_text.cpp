// ovrm_send_text.cpp - UTF-8 to Shift_JIS, character by character, so that what cannot be sent can
// be named by place.
//
// A mail carries ASCII and the characters of JIS X 0208. Half-width katakana exist in Shift_JIS but
// not in ISO-2022-JP: the library would put them on the wire as bare 8-bit bytes, so they are
// refused here. ESC would be taken for a code switch, NUL ends the text.
#include "ovrm_send_text.hpp"

#include <iconv.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <iostream>

namespace ovrm_send {
namespace {

class Converter {
public:
    Converter(const char* to, const char* from) : handle_(iconv_open(to, from)) {}
    ~Converter() {
        if (usable()) iconv_close(handle_);
    }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    [[nodiscard]] bool usable() const { return reinterpret_cast<std::intptr_t>(handle_) != -1; }

    // The text in the other code; empty when a character has none there.
    std::string operator()(std::string_view text) {
        std::string bytes(text.size() * 3 + 4, '\0');
        char* in = const_cast<char*>(text.data());
        std::size_t in_left = text.size();
        char* out = bytes.data();
        std::size_t out_left = bytes.size();
        iconv(handle_, nullptr, nullptr, nullptr, nullptr);
        if (iconv(handle_, &in, &in_left, &out, &out_left) == std::size_t(-1)) return {};
        bytes.resize(bytes.size() - out_left);
        return bytes;
    }

private:
    iconv_t handle_;
};

struct Twin {
    std::string_view typed;
    std::string_view standard;
};

// Code points that Japanese input methods produce on some systems for characters whose JIS X 0208
// mapping names another one.
constexpr std::array<Twin, 6> kTwins{{{"\uFF5E", "\u301C"},
                                      {"\uFF0D", "\u2212"},
                                      {"\u2225", "\u2016"},
                                      {"\uFFE0", "\u00A2"},
                                      {"\uFFE1", "\u00A3"},
                                      {"\uFFE2", "\u00AC"}}};

std::string_view standard_form(std::string_view character) {
    const Twin* twin = std::find_if(kTwins.begin(), kTwins.end(),
                                    [&](const Twin& t) { return t.typed == character; });
    return twin == kTwins.end() ? character : twin->standard;
}

// The first byte and the continuation bytes it announces, as far as they are there.
std::string_view first_character(std::string_view text) {
    const auto first = static_cast<unsigned char>(text[0]);
    const std::size_t announced = first < 0xC0 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    std::size_t length = 1;
    while (length < std::min(announced, text.size()) &&
           (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80) {
        ++length;
    }
    return text.substr(0, length);
}

bool is_carried(std::string_view bytes) {
    if (bytes.size() != 1) return bytes.size() == 2;
    const auto byte = static_cast<unsigned char>(bytes[0]);
    return byte < 0x80 && byte != 0 && byte != 0x1B;
}

struct Place {
    std::size_t line = 1;
    std::size_t column = 0;
    void step(bool new_line) {
        column = new_line ? 1 : column + 1;
        if (new_line) ++line;
    }
};

void report(std::string_view what, const Place& place, std::string_view character) {
    std::cerr << "ovrm-send: " << what << ", line " << place.line << ", character " << place.column
              << ": cannot be sent:";
    const bool printable = character.size() > 1;
    if (printable) std::cerr << " " << character;
    for (const char byte : character) {
        std::array<char, 8> hex{};
        std::snprintf(hex.data(), hex.size(), " %02X", static_cast<unsigned char>(byte));
        std::cerr << hex.data();
    }
    std::cerr << "\n";
}

}  // namespace

std::optional<std::string> to_shift_jis(std::string_view what, std::string_view utf8,
                                        bool replace) {
    Converter convert("SJIS", "UTF-8");
    if (!convert.usable()) {
        std::cerr << "ovrm-send: this system has no conversion from UTF-8 to Shift_JIS\n";
        return std::nullopt;
    }
    std::string out;
    Place place;
    bool complete = true;
    bool after_line_feed = false;
    for (std::size_t at = 0; at < utf8.size();) {
        const std::string_view character = first_character(utf8.substr(at));
        place.step(after_line_feed);
        after_line_feed = utf8[at] == '\n';
        at += character.size();
        const std::string bytes = convert(standard_form(character));
        if (is_carried(bytes)) {
            out += bytes;
            continue;
        }
        report(what, place, character);
        out += '?';
        complete = false;
    }
    if (!complete && !replace) return std::nullopt;
    return out;
}

std::string to_utf8(const std::string& line) {
    Converter convert("UTF-8", "SJIS");
    const std::string text = convert.usable() ? convert(line) : std::string();
    return text.empty() ? line : text;
}

}  // namespace ovrm_send
