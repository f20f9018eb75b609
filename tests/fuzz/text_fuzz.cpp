// text_fuzz.cpp - Shift_JIS text and subject on their way into a message. The first byte chooses;
// bytes that the C library's own converter takes for Japanese must come back out of the message.
#include <iconv.h>
#include <resolv.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "fuzz.hpp"
#include "mime.h"
#include "tests/support/wire_rules.hpp"

namespace {

using fuzz::demand;

// UTF-8 of a text in `code`; nothing where it is not valid there.
std::optional<std::string> decoded(const char* code, std::string_view in) {
    const iconv_t converter = ::iconv_open("UTF-8", code);
    demand(converter != reinterpret_cast<iconv_t>(-1), "a converter");
    std::string out(in.size() * 4 + 16, '\0');
    char* from = const_cast<char*>(in.data());
    std::size_t left = in.size();
    char* to = out.data();
    std::size_t room = out.size();
    const bool whole = ::iconv(converter, &from, &left, &to, &room) != std::size_t(-1) &&
                       ::iconv(converter, nullptr, nullptr, &to, &room) != std::size_t(-1);
    ::iconv_close(converter);
    if (!whole) return {};
    out.resize(out.size() - room);
    return out;
}

// Whether the text is one that converters agree on: no half-width katakana, none of the two
// characters that the Roman set of JIS X 0201 has in place of ASCII's, no control characters.
bool is_common(std::string_view text) {
    bool trail = false;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (std::exchange(trail, false)) continue;
        trail = (byte >= 0x81 && byte <= 0x9F) || (byte >= 0xE0 && byte <= 0xEF);
        if (!trail && (byte < ' ' || byte > '~' || byte == '\\' || byte == '~')) return false;
    }
    return !trail;
}

bool is_japanese(std::string_view text) {
    return std::ranges::any_of(text, [](char c) { return (c & 0x80) != 0; });
}

void replace_all(std::string& text, std::string_view from, std::string_view to) {
    for (std::size_t at = 0; (at = text.find(from, at)) != text.npos; at += to.size())
        text.replace(at, from.size(), to);
}

// RFC 2047, ISO-2022-JP in base64 only; the folds of the encoder are taken out whole.
std::string unfolded(std::string text) {
    constexpr std::string_view kStart = "=?ISO-2022-JP?B?";
    replace_all(text, "\r\n ", "");
    std::string out;
    for (std::string_view rest = text; !rest.empty();) {
        const std::size_t word = rest.find(kStart);
        out += rest.substr(0, word);
        if (word == rest.npos) break;
        const std::size_t end = rest.find("?=", word + kStart.size());
        demand(end != rest.npos && end + 2 - word <= 75, "an encoded word ends, soon enough");
        const std::string base64(rest.substr(word + kStart.size(), end - word - kStart.size()));
        std::vector<unsigned char> bytes(base64.size() + 1);
        const int size = ::b64_pton(base64.c_str(), bytes.data(), bytes.size());
        demand(size >= 0, "base64");
        out.append(reinterpret_cast<const char*>(bytes.data()), static_cast<std::size_t>(size));
        rest.remove_prefix(end + 2);
    }
    return out;
}

std::string subject_of(const std::string& text) {
    std::vector<char> room(17 * text.size() + 8, 'u');
    SMTP_makeSubject(text.c_str(), room.data());
    return room.data();
}

void subject(const std::string& text) {
    const std::string encoded = subject_of(text);
    const auto wanted = decoded("SJIS", text);
    if (!is_common(text) || !wanted || text.find("=?") != text.npos) return;
    if (!is_japanese(text)) return demand(encoded == text, "ASCII as it is");
    demand(!is_japanese(encoded), "seven bits");
    const auto got = decoded("ISO-2022-JP", unfolded(encoded));
    demand(got && *got == (text.starts_with('.') ? "." : "") + *wanted, "the subject comes back");
    demand(subject_of(text + "\x81") == encoded, "half a character at the end is left out");
}

// A whole text part: lines apart, dots doubled.
void body(std::string_view text) {
    const int in = ::memfd_create("text", MFD_CLOEXEC);
    const int out = ::memfd_create("message", MFD_CLOEXEC);
    const std::string path = "/proc/self/fd/" + std::to_string(in);
    demand(::write(in, text.data(), text.size()) == std::ssize(text), "memory for the input");
    demand(SMTP_makeTopData(out, path.c_str(), "a@b", "c@d", "s", nullptr, 0, 0, nullptr) == 0,
           "composed");
    std::string message(static_cast<std::size_t>(::lseek(out, 0, SEEK_END)), '\0');
    demand(::pread(out, message.data(), message.size(), 0) == std::ssize(message), "read");
    ::close(in);
    ::close(out);
    const std::size_t end = message.find("\r\n\r\n");
    demand(end != message.npos && message.ends_with("\r\n"), "a header, and a line end behind all");
    demand(!support::has_lone_dot(message), "no line is a dot alone");
    demand(support::has_bare_lf(text) || !support::has_bare_lf(message), "no LF without its CR");
    std::string part = message.substr(end + 4);
    part.resize(part.size() - 2);
    std::string wanted;
    for (std::string_view rest = text; !rest.empty();) {
        const std::string_view one = rest.substr(0, rest.find("\r\n"));
        if (!is_common(one) || one.size() > 1000) return;
        wanted += (one.starts_with('.') ? "." : "") + std::string(one);
        rest.remove_prefix(one.size());
        if (!rest.empty()) wanted += "\r\n", rest.remove_prefix(2);
    }
    const auto original = decoded("SJIS", wanted);
    if (!original) return;
    const auto got = decoded(is_japanese(text) ? "ISO-2022-JP" : "ASCII", part);
    demand(got && *got == *original, "the text comes back");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::string_view rest = fuzz::text(data + 1, size - 1);
    if (data[0] % 3 == 0)
        subject(std::string(rest.substr(0, rest.find('\0'))));
    else
        body(rest);
    return 0;
}
