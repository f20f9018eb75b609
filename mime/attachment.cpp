// attachment.cpp - SMTP_makeAppendData, SMTP_makeAppend_TargetFile: files behind the text part.
//
// Called once per attached file, or once for the prepared content of an S/MIME message, on the
// composition file that header.cpp began. Owns Content_D_flg, which the mail options set.
// Part headers: RFC 2045 sections 5 and 6.8, RFC 2183; delimiters: RFC 2046 section 5.1.1.
#include <algorithm>
#include <cerrno>

#include "common/base64.hpp"
#include "common/block_io.hpp"
#include "common/text.hpp"
#include "mime.h"
#include "mime/fields.hpp"
#include "mime/files.hpp"
#include "mime/scratch.hpp"

std::int32_t Content_D_flg = 0;

namespace ovrmail::mime {
namespace {

using common::BlockWriter;
using common::kBase64LineBytes;
using common::kBase64LineSize;
using log::TraceScope;

// Kept: a separator in the first place does not count, so the name of "/file" is "/file". Callers
// rely on these documented names.
std::string_view attachment_name(std::string_view path) noexcept {
    const std::size_t separator = path.find_last_of("/:");
    if (separator == path.npos || separator == 0) return path;
    return common::skip(path, separator + 1);
}

// A line break in a file name could add headers or end the message: it becomes a blank.
bool put_name(BlockWriter& out, std::string_view name) noexcept {
    for (;;) {
        const std::size_t length = std::min(name.find_first_of("\r\n"), name.size());
        if (!out.put(name.substr(0, length))) return false;
        if (length == name.size()) return true;
        if (!out.put(" ")) return false;
        name.remove_prefix(length + 1);
    }
}

bool put_quoted(BlockWriter& out, std::string_view start, std::string_view name) noexcept {
    return out.put(start) && put_name(out, name) && out.put("\"\r\n");
}

// Kept: the form with the name alone. Sites choose it for mail readers that were adapted to it.
bool put_disposition(TraceScope& trace, BlockWriter& out, std::string_view name) noexcept {
    if (Content_D_flg == 1) {
        trace.note("smtp0718", name);
        return put_quoted(out, "Content-Disposition: \"", name);
    }
    trace.note("smtp0717", name);
    return put_quoted(out, "Content-Disposition: attachment;\r\n\tfilename=\"", name);
}

void put_part_header(TraceScope& trace, BlockWriter& out, std::string_view name,
                     std::string_view boundary) noexcept {
    put_line(TextSink(out), "\r\n--", boundary);
    put_quoted(out, "Content-Type: application/octet-stream; name=\"", name);
    out.put("Content-Transfer-Encoding: base64\r\n");
    put_disposition(trace, out, name);
    out.put("\r\n");
}

bool put_encoded(BlockWriter& out, std::span<const char> bytes) noexcept {
    while (!bytes.empty()) {
        const std::span<char> room = out.room(kBase64LineSize);
        if (room.empty()) return false;
        const auto part =
            bytes.first(std::min(bytes.size(), room.size() / kBase64LineSize * kBase64LineBytes));
        out.commit(common::base64_encode_lines(
            {reinterpret_cast<const unsigned char*>(part.data()), part.size()}, room));
        bytes = bytes.subspan(part.size());
    }
    return true;
}

// Encodes the file to its end. Returns kOk, kReadFailed with errno, or kWriteFailed.
Result put_file(BlockWriter& out, int fd) noexcept {
    const auto block = input_block().first<whole_units(kInputSize, kBase64LineBytes)>();
    for (;;) {
        const ssize_t got = common::read_full(fd, block);
        if (got < 0) return kReadFailed;
        const auto size = static_cast<std::size_t>(got);
        if (!put_encoded(out, block.first(size))) return kWriteFailed;
        if (size < block.size()) return kOk;
    }
}

std::int32_t append_file(int fd, const char* path, std::string_view boundary, bool more_follow,
                         std::uint32_t* err) noexcept {
    TraceScope trace("smtp0700", "smtp07FF");
    BlockWriter out(fd, output_block());
    put_part_header(trace, out, attachment_name(text_or_empty(path)), boundary);
    const common::UniqueFd file = open_to_read(path);
    if (!file.valid()) return fail(trace, "smtp0730", kOpenFailed, errno, err);
    const Result copied = put_file(out, file.get());
    if (copied == kReadFailed) return fail(trace, "smtp0735", kReadFailed, errno, err);
    if (copied == kWriteFailed) return fail(trace, "smtp0740", kWriteFailed, out.error(), err);
    if (!more_follow) put_line(TextSink(out), "--", boundary, "--\r\n");
    if (!out.flush()) return fail(trace, "smtp0745", kWriteFailed, out.error(), err);
    return trace.leave(kOk);
}

// The most that is taken of a text line at once.
constexpr std::size_t kTargetPiece = 1027;

// Kept: a longer line is sent in pieces, each with its own CR LF. A line ends at its LF, its text
// at the first LF or zero byte, so that a CR before the LF stays. Callers that prepare such files
// rely on this documented form.
bool put_target_line(BlockWriter& out, InputWindow& file) noexcept {
    const std::string_view piece = file.view().substr(0, kTargetPiece);
    const std::size_t end = piece.find('\n');
    const std::string_view line = piece.substr(0, end);
    const std::string_view text = line.substr(0, line.find('\0'));
    if (!put_line(TextSink(out), "", text)) return false;
    file.consume(line.size() + (end != piece.npos ? 1 : 0));
    return true;
}

std::int32_t append_target(int fd, const char* path, std::uint32_t* err) noexcept {
    TraceScope trace("SmimeFil0000", "SmimeFilFFFF");
    const common::UniqueFd file = open_to_read(path);
    if (!file.valid()) return fail(trace, "SmimeFil0010", kOpenFailed, errno, err);
    BlockWriter out(fd, output_block());
    InputWindow input(file.get());
    for (;;) {
        if (!input.fill(kTargetPiece)) return fail(trace, "SmimeFil0020", kOpenFailed, errno, err);
        if (input.view().empty()) break;
        if (!put_target_line(out, input))
            return fail(trace, "SmimeFil0050", kWriteFailed, out.error(), err);
    }
    if (!out.flush()) return fail(trace, "SmimeFil0050", kWriteFailed, out.error(), err);
    return trace.leave(kOk);
}

}  // namespace
}  // namespace ovrmail::mime

std::int32_t SMTP_makeAppendData(std::int32_t fd, const char* path, const char* boundary,
                                 std::uint32_t more_follow, std::uint32_t* err) noexcept {
    using namespace ovrmail::mime;
    return append_file(fd, path, text_or_empty(boundary), more_follow != 0, err);
}

std::int32_t SMTP_makeAppend_TargetFile(std::int32_t fd, const char* path,
                                        std::uint32_t* err) noexcept {
    return ovrmail::mime::append_target(fd, path, err);
}
