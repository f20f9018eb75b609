// piece.cpp - SMTP_getSendData, SMTP_getline, SMTP_addline: pieces cut from the composition file.
//
// Called by the driver twice over the whole file, to count the pieces and to send them. Owns no
// state: the file position tells where the next piece starts. A piece ends with a line and, where
// its buffer allows, not inside the header of a body part (RFC 2046 section 5.2.2).
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <span>
#include <string_view>

#include "common/block_io.hpp"
#include "common/error_word.hpp"
#include "common/text.hpp"
#include "mime.h"
#include "mime/fields.hpp"
#include "mime/files.hpp"

namespace ovrmail::mime {
namespace {

using log::TraceScope;

constexpr std::size_t kGrowth = 1024;  // a piece is read this much short of its buffer
constexpr std::int32_t kWalkLine = 1024;
constexpr std::string_view kLineEnd = "\r\n";

// Seeks back over `size` bytes that were read too far. The file may be too large for an off_t.
bool give_back(int fd, std::size_t size) noexcept {
    return size == 0 || ::lseek64(fd, -static_cast<off64_t>(size), SEEK_CUR) != -1;
}

// What was read ahead into `room`.
struct Ahead {
    std::string_view text;
    std::size_t beyond;  // bytes read behind the room: 0 when nothing is left in the file, or 1
    char next;           // that byte
};

// False when reading failed; errno tells why.
bool read_ahead(int fd, std::span<char> room, Ahead& ahead) noexcept {
    const ssize_t got = common::read_full(fd, room);
    char byte = '\0';
    const bool full = got == static_cast<ssize_t>(room.size());
    const ssize_t more = full ? common::read_full(fd, {&byte, 1}) : 0;
    if (got < 0 || more < 0) return false;
    ahead = {{room.data(), static_cast<std::size_t>(got)}, static_cast<std::size_t>(more), byte};
    return true;
}

// The end of the first line that ends at or behind `from`; npos without one.
std::size_t line_end_from(std::string_view text, std::size_t from) noexcept {
    const std::size_t at = text.find(kLineEnd, std::max(from, kLineEnd.size()) - kLineEnd.size());
    return at == text.npos ? at : at + kLineEnd.size();
}

// The end of the last whole line, 0 without one.
std::size_t last_line_end(std::string_view text) noexcept {
    const std::size_t at = text.rfind(kLineEnd);
    return at == text.npos ? 0 : at + kLineEnd.size();
}

// The length of the lines wanted from `text`: one line, or everything up to the next blank line and
// one line more. `previous` is the byte before the text. npos when the text ends before.
std::size_t wanted_lines(std::string_view text, char previous, int blank_lines) noexcept {
    for (std::size_t start = 0;;) {
        const std::size_t end = line_end_from(common::skip(text, start), 0);
        if (end == text.npos) return text.npos;
        if (blank_lines <= 0) return start + end;
        const std::size_t cr = start + end - kLineEnd.size();
        if ((cr != 0 ? text[cr - 1] : previous) == '\n') --blank_lines;
        start += end;
    }
}

// What to do with a line that is longer than the room.
enum class Overlong { kLeave, kCut };

// Reads lines behind a piece into `room`, which may be empty; `previous` is the last byte of the
// piece. Lines that do not fit stay in the file.
std::int32_t add_lines(int fd, std::span<char> room, char previous, int blank_lines,
                       Overlong overlong, std::uint32_t* err) noexcept {
    TraceScope trace("smtp1200", "smtp12FF");
    std::array<char, kGrowth> buffer;
    const auto within = std::span(buffer).first(std::min(room.size(), buffer.size()));
    Ahead ahead{};
    if (!read_ahead(fd, within, ahead)) return fail(trace, "smtp1210", kReadFailed, errno, err);
    const std::string_view text = ahead.text;
    std::size_t size = wanted_lines(text, previous, blank_lines);
    if (size == text.npos) size = ahead.beyond == 0 ? text.size() : last_line_end(text);
    if (size == 0 && overlong == Overlong::kCut) size = text.size();
    if (!give_back(fd, text.size() + ahead.beyond - size))
        return fail(trace, "smtp1220", kReadFailed, errno, err);
    text.copy(room.data(), size);
    return trace.leave(static_cast<std::int32_t>(size));
}

// What a piece still needs so that it does not end inside the header of a part.
enum class Growth { kNone, kLine, kHeader };

// Kept: the last line is read without its LF, so that a blank line at the end is not counted and a
// closing delimiter there counts as an opening one; the first line is not read. Existing callers
// rely on pieces that are cut at these places.
Growth judge(std::string_view piece, std::string_view boundary, TraceScope& trace) noexcept {
    std::array<char, kWalkLine> buffer;
    // Without the boundary in the piece no line has to be read.
    auto start = boundary.empty() || piece.find(boundary) == piece.npos
                     ? 0
                     : static_cast<std::int32_t>(piece.size());
    int blank = 0;
    for (bool last = true;; last = false) {
        start = SMTP_getline(piece.data(), start, buffer.data(), kWalkLine);
        if (start <= 1) break;
        const std::string_view line = buffer.data();
        if (line.find(boundary) == line.npos) {
            blank += line == kLineEnd ? 1 : 0;
            continue;
        }
        if (line.find("--\r\n") != line.npos) {
            trace.note("smtp1031");
            return Growth::kNone;
        }
        if (last || blank == 0) return Growth::kHeader;
        const bool ends_blank = piece.ends_with("\n\r\n");
        return blank == 1 && ends_blank ? Growth::kLine : Growth::kNone;
    }
    trace.note("smtp1030");
    return Growth::kNone;
}

// Where to cut a line that goes on with `next`. What follows starts a line of the next piece, where
// a dot alone would end the mail (RFC 5321 section 4.5.2); CR LF stay together.
std::size_t cut_line(std::string_view line, char next) noexcept {
    constexpr std::string_view kUnsafe = ".\r\n";
    if (kUnsafe.find(next) == kUnsafe.npos) return line.size();
    std::size_t size = line.find_last_not_of(kUnsafe);
    if (size == line.npos || size == 0) size = line.rfind("..");  // two dots end no mail
    return size == line.npos || size == 0 ? line.size() : size;
}

// Where to cut the text: after the first line end from the nominal size on, or after the last line
// end before it when that line does not fit. A single line that fills the buffer is cut itself.
std::size_t cut_size(std::string_view text, std::size_t nominal, const Ahead& ahead) noexcept {
    std::size_t size = line_end_from(text, nominal);
    if (size != text.npos) return size;
    if (ahead.beyond == 0) return text.size();
    size = last_line_end(text);
    return size != 0 ? size : cut_line(text, ahead.next);
}

std::int32_t next_piece(int fd, std::span<char> buffer, std::string_view boundary,
                        std::uint32_t* err) noexcept {
    TraceScope trace("smtp1000", "smtp10FF");
    const std::size_t nominal = buffer.size() - kGrowth;
    const ssize_t got = common::read_full(fd, buffer.first(nominal));
    if (got < 0) return fail(trace, "smtp1010", kReadFailed, errno, err);
    if (static_cast<std::size_t>(got) < nominal) {
        buffer[static_cast<std::size_t>(got)] = '\0';
        trace.note("smtp1011", static_cast<std::int32_t>(got));
        return trace.leave(static_cast<std::int32_t>(got));
    }
    const auto growth_room = buffer.subspan(nominal);
    Ahead ahead{};
    if (!read_ahead(fd, growth_room, ahead))
        return fail(trace, "smtp1020", kReadFailed, errno, err);
    const std::size_t read = nominal + ahead.text.size();
    const std::size_t size = cut_size({buffer.data(), read}, nominal, ahead);
    if (!give_back(fd, read + ahead.beyond - size))
        return fail(trace, "smtp1025", kReadFailed, errno, err);
    // Clears the buffer behind the piece.
    std::memset(buffer.data() + size, 0, std::min(read + 1, buffer.size()) - size);
    const std::string_view piece(buffer.data(), size);
    if (!piece.ends_with(kLineEnd)) return trace.leave(static_cast<std::int32_t>(size));
    const Growth growth = judge(piece, boundary, trace);
    std::int32_t added = 0;
    if (growth != Growth::kNone)
        added = add_lines(fd, buffer.subspan(size), piece.back(), growth == Growth::kHeader ? 1 : 0,
                          Overlong::kLeave, err);
    if (added < 0) return trace.fail(growth == Growth::kLine ? "smtp1040" : "smtp1050", added);
    return trace.leave(static_cast<std::int32_t>(size) + added);
}

// The 1-based start of the line that ends before `end`, at most `room` bytes before it.
std::int32_t line_start(const char* buffer, std::int32_t end, std::int32_t room) noexcept {
    std::int32_t at = end - 1;
    while (at > 1 && end - at < room &&
           !(at > 2 && buffer[at - 3] == '\r' && buffer[at - 2] == '\n'))
        --at;
    return at;
}

}  // namespace
}  // namespace ovrmail::mime

std::int32_t SMTP_getSendData(std::int32_t fd, char* buffer, std::int32_t size_kb,
                              const char* boundary, std::uint32_t* err) noexcept {
    using namespace ovrmail::mime;
    constexpr std::int32_t kMaxKb = INT32_MAX / 1024;
    if (buffer == nullptr || size_kb < 1 || size_kb > kMaxKb) {
        ovrmail::common::set_error(err, EINVAL);
        return kReadFailed;
    }
    return next_piece(fd, {buffer, static_cast<std::size_t>(size_kb) * 1024},
                      text_or_empty(boundary), err);
}

std::int32_t SMTP_getline(const char* buffer, std::int32_t end, char* line,
                          std::int32_t max) noexcept {
    if (line != nullptr && max > 0) *line = '\0';
    if (buffer == nullptr || line == nullptr || end <= 1 || max <= 1) return 1;
    const std::int32_t start = ovrmail::mime::line_start(buffer, end, max - 1);
    *std::copy(buffer + start - 1, buffer + end - 1, line) = '\0';
    return start;
}

std::int32_t SMTP_addline(std::int32_t fd, char* dst, std::int32_t blank_lines,
                          std::uint32_t* err) noexcept {
    using namespace ovrmail::mime;
    if (dst == nullptr) {
        ovrmail::common::set_error(err, EINVAL);
        return kReadFailed;
    }
    const char previous = blank_lines > 0 ? dst[-1] : '\0';
    return add_lines(fd, {dst, kGrowth}, previous, blank_lines, Overlong::kCut, err);
}
