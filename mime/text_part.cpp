// text_part.cpp - charset scan and body lines of the text part.
//
// Called by header.cpp after the message header. No state; reads through the input block and writes
// through the output block. Line length and dots: RFC 5321 sections 4.5.3.1.6 and 4.5.2.
#include "mime/text_part.hpp"

#include <cstring>

#include "common/text.hpp"
#include "mime/iso2022.hpp"
#include "mime/sjis.hpp"

namespace ovrmail::mime {
namespace {

constexpr std::size_t kScanChunk = 1028;
constexpr std::size_t kLineLimit = 1024;
constexpr std::size_t kLongestLine = kLineLimit + 2;  // a line at the limit with its CR LF
constexpr std::string_view kLineEnd = "\r\n";

// Whether the last byte starts a two-byte character, judged from the start of the line: the byte
// after a lead byte is its trail byte whatever its value.
bool ends_in_lead(std::string_view line) noexcept {
    bool lead = false;
    for (const char byte : line) lead = !lead && is_sjis_lead(byte);
    return lead;
}

struct Line {
    std::string_view bytes;
    bool broken;  // cut at the limit: its CR LF is still to be added
};

// The first line of the text: through its CR LF (a lone LF ends no line), up to the limit, or what
// is left. Neither a CR LF nor a two-byte character is ever cut: a server could take a bare LF and
// a dot for the end of the mail, and the rest of the text for commands.
Line next_line(std::string_view text) noexcept {
    const std::size_t end = text.substr(0, kLineLimit + 1).find(kLineEnd);
    if (end != text.npos) return {text.substr(0, end + kLineEnd.size()), false};
    if (text.size() < kLineLimit) return {text, false};
    const std::string_view line = text.substr(0, kLineLimit);
    if (!ends_in_lead(line)) return {line, true};
    const bool ends_here = common::skip(text, kLineLimit).starts_with(kLineEnd);
    if (ends_here) return {text.substr(0, kLineLimit + kLineEnd.size()), false};
    return {text.substr(0, kLineLimit + 1), text.size() > kLineLimit};
}

bool put_plain(const Line& line, common::BlockWriter& out) noexcept {
    std::string_view rest = line.bytes;
    for (std::size_t dot = next_dot_to_double(rest, 0); dot != rest.npos;
         dot = next_dot_to_double(rest, 1)) {
        if (!out.put(rest.substr(0, dot)) || !out.put(".")) return false;
        rest.remove_prefix(dot);
    }
    return out.put(rest) && (!line.broken || out.put(kLineEnd));
}

// Kept: a zero byte, in the line or from an invalid pair, ends the converted line, and its CR LF is
// lost. Callers rely on this documented result.
bool put_japanese(const Line& line, common::BlockWriter& out) noexcept {
    std::array<char, kLongestLine + kLineEnd.size()> whole;
    const std::size_t size = line.bytes.copy(whole.data(), kLongestLine);
    std::string_view text(whole.data(), size);
    if (line.broken) {
        kLineEnd.copy(whole.data() + size, kLineEnd.size());
        text = {whole.data(), size + kLineEnd.size()};
    }
    text = text.substr(0, text.find('\0'));
    const std::span<char> room = out.room(iso2022_room(text.size()));
    if (room.empty()) return false;
    const std::size_t written = to_iso2022(text, room);
    out.commit(::strnlen(room.data(), written));
    return true;
}

}  // namespace

bool scan_charset(InputWindow& body, bool& japanese) noexcept {
    japanese = false;
    for (;;) {
        if (!body.fill(kScanChunk)) return false;
        const std::string_view chunk = body.view().substr(0, kScanChunk);
        if (chunk.empty()) return true;
        japanese = holds_sjis_lead(chunk.substr(0, chunk.find('\0')));
        if (japanese) return true;
        body.consume(chunk.size());
    }
}

bool find_text(InputWindow& body, std::string_view text, bool& found) noexcept {
    found = false;
    for (;;) {
        if (!body.fill(text.size())) return false;
        const std::string_view view = body.view();
        found = view.find(text) != view.npos;
        if (found || view.size() < text.size()) return true;
        body.consume(view.size() - (text.size() - 1));
    }
}

Result copy_text(InputWindow& body, bool japanese, common::BlockWriter& out) noexcept {
    for (;;) {
        if (!body.fill(kLongestLine)) return kReadFailed;
        if (body.view().empty()) return kOk;
        const Line line = next_line(body.view());
        if (!(japanese ? put_japanese(line, out) : put_plain(line, out))) return kWriteFailed;
        body.consume(line.bytes.size());
    }
}

}  // namespace ovrmail::mime
