// header.cpp - SMTP_makeTopData, SMTP_makeMIME: the beginning of a composed message.
//
// First step of composing: header block, first delimiter, text part; attachment.cpp adds the
// attachments. No state beside the scratch blocks. Formats: RFC 822, RFC 2045, RFC 2046.
//
// The composition file is written in whole blocks, so a write failure may be seen some lines later,
// with the same result.
#include "mime/header.hpp"

#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "common/block_io.hpp"
#include "log/trace_scope.hpp"
#include "mime.h"
#include "mime/fields.hpp"
#include "mime/files.hpp"
#include "mime/identity.hpp"
#include "mime/scratch.hpp"
#include "mime/text_part.hpp"

namespace ovrmail::mime {
namespace {

using common::BlockWriter;
using log::TraceScope;

// The body file: open, or none, or not opened, which is reported when the text part is written.
struct Body {
    bool wanted = false;
    int fd = -1;
    int open_error = 0;
};

struct Head {
    std::string_view from;
    std::string_view to;
    std::string_view subject;
    bool with_addresses;
    bool as_mime;
    char* boundary;  // null: a single-part message
    Body body;
};

// "Date: Thu, 01 Jan 1970 00:00:00 -0000", "From: a@b.example", "To: c@d.example,", ...
bool put_addresses(TextSink out, const Head& head) noexcept {
    return put_date(out) && put_line(out, "From: ", head.from) && put_recipients(out, head.to);
}

bool put_names(TextSink out, const Head& head) noexcept {
    return out.put("Subject: ") && put_subject(out, head.subject) && out.put("\r\n") &&
           put_message_id(out);
}

// The boundary must not occur in a part (RFC 2046 section 5.1.1): a text with it would end its part
// and begin others, and the time in it can be guessed. The seconds are counted up until the text
// does not contain it. Returns kOk, or what failed, with errno.
Result choose_boundary(char* boundary, const Body& body, InputWindow& text) noexcept {
    for (std::time_t seconds = std::time(nullptr);; ++seconds) {
        const auto length = static_cast<std::size_t>(
            make_boundary(std::span<char, kBoundarySize>(boundary, kBoundarySize), seconds));
        if (body.fd < 0) return kOk;
        bool found = false;
        if (!text.rewind()) return kWriteFailed;
        if (!find_text(text, {boundary, length}, found)) return kReadFailed;
        if (!found) return kOk;
    }
}

// 'Content-Type: multipart/mixed; boundary="..."', an empty line, the first delimiter.
bool put_multipart_frame(TextSink out, std::string_view boundary) noexcept {
    return out.put("Content-Type: multipart/mixed; boundary=\"") && out.put(boundary) &&
           out.put("\"\r\n") && put_line(out, "\r\n--", boundary);
}

// The text part of the message with its header.
Result put_text_part(TraceScope& trace, BlockWriter& out, InputWindow& body) noexcept {
    bool japanese = false;
    if (!body.rewind()) return kWriteFailed;
    if (!scan_charset(body, japanese)) return kReadFailed;
    if (japanese) trace.note("smtp0652");
    const std::string_view type = japanese ? "Content-Type: text/plain; charset=\"ISO-2022-JP\"\r\n"
                                           : "Content-Type: text/plain; charset=\"us-ascii\"\r\n";
    trace.note(japanese ? "smtp0653" : "smtp0654", type);
    out.put(type);
    out.put("\r\n");
    if (!body.rewind()) return kWriteFailed;
    const Result copied = copy_text(body, japanese, out);
    if (copied == kOk) out.put("\r\n");
    return copied;
}

Result put_mime(TraceScope& trace, BlockWriter& out, const Head& head) noexcept {
    InputWindow body(head.body.fd);
    out.put("MIME-Version: 1.0\r\n");
    if (head.boundary != nullptr) {
        const Result chosen = choose_boundary(head.boundary, head.body, body);
        if (chosen != kOk) return chosen;
        put_multipart_frame(TextSink(out), head.boundary);
    }
    if (!head.body.wanted) return kOk;
    return head.body.fd < 0 ? kOpenFailed : put_text_part(trace, out, body);
}

std::int32_t build(int fd, const Head& head, std::uint32_t* err) noexcept {
    TraceScope trace("smtp0600", "smtp06FF");
    if (::lseek(fd, 0, SEEK_SET) != 0) return fail(trace, "smtp0605", kWriteFailed, errno, err);
    BlockWriter out(fd, output_block());
    if (head.with_addresses) put_addresses(TextSink(out), head);
    put_names(TextSink(out), head);
    const Result made = head.as_mime ? put_mime(trace, out, head) : kOk;
    const int error = errno;
    if (made == kOpenFailed) return fail(trace, "smtp0645", made, head.body.open_error, err);
    if (made == kReadFailed) return fail(trace, "smtp0650", made, error, err);
    // The writer keeps the error of a failed write; without one a seek failed.
    if (made == kOk && out.flush()) return trace.leave(kOk);
    return fail(trace, "smtp0660", kWriteFailed, out.error() != 0 ? out.error() : error, err);
}

std::int32_t make_top(int fd, const TopData& top, const Body& body, std::uint32_t* err) noexcept {
    TraceScope trace("makeTop_0000", "makeTop_FFFF");
    const Head head{.from = text_or_empty(top.from),
                    .to = text_or_empty(top.to),
                    .subject = text_or_empty(top.subject),
                    .with_addresses = !top.skip_address,
                    .as_mime = true,
                    .boundary = top.boundary,
                    .body = body};
    return trace.leave(build(fd, head, err));
}

}  // namespace

std::int32_t make_top_data(int fd, const TopData& top, int body_fd, std::uint32_t* err) noexcept {
    return make_top(fd, top, {.wanted = true, .fd = body_fd}, err);
}

}  // namespace ovrmail::mime

std::int32_t SMTP_makeTopData(std::int32_t fd, const char* body_path, const char* from,
                              const char* to, const char* subject, char* boundary,
                              std::uint32_t multipart, std::uint32_t skip_address,
                              std::uint32_t* err) noexcept {
    using namespace ovrmail::mime;
    std::array<char, kBoundarySize> unwanted;
    if (boundary == nullptr) boundary = unwanted.data();
    const bool wanted = body_path != nullptr;
    const ovrmail::common::UniqueFd body =
        wanted ? open_to_read(body_path) : ovrmail::common::UniqueFd();
    return make_top(fd,
                    {.from = from,
                     .to = to,
                     .subject = subject,
                     .boundary = multipart == 1 ? boundary : nullptr,
                     .skip_address = skip_address != 0},
                    {.wanted = wanted, .fd = body.get(), .open_error = errno}, err);
}

std::int32_t SMTP_makeMIME(std::int32_t fd, const char* from, const char* to, const char* subject,
                           std::uint32_t* err) noexcept {
    using namespace ovrmail::mime;
    ovrmail::log::TraceScope trace("makeMIE_0000", "makeMIE_FFFF");
    const Head head{.from = text_or_empty(from),
                    .to = text_or_empty(to),
                    .subject = text_or_empty(subject),
                    .with_addresses = true,
                    .as_mime = false,
                    .boundary = nullptr,
                    .body = {}};
    return trace.leave(build(fd, head, err));
}
