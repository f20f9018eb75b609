// partial.cpp - SMTP_sendData_Partial: one message/partial piece with its own header.
//
// Called once per piece, between DATA and the end mark. The header lines are collected in the
// output block and sent in two parts; the trace shows each line as its own send. No other state.
// RFC 2046 section 5.2.2.
#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

#include "common/text.hpp"
#include "log/trace_scope.hpp"
#include "mime.h"
#include "mime/fields.hpp"
#include "mime/scratch.hpp"
#include "smtp.h"
#include "smtp/blocks.hpp"

namespace ovrmail::mime {
namespace {

// Collects header lines. A text that ends in LF ends its line, and so does the end of the block.
// When there is no room left, the lines are sent.
class LineSender {
public:
    LineSender(int sock, std::uint32_t* err) noexcept
        : sock_(sock), err_(err), block_(output_block()) {}

    // Sets the trace point of the lines that follow.
    void at(const char* point) noexcept { point_ = point; }

    bool put(std::string_view text) noexcept {
        while (!text.empty() && result_ >= 0) {
            if (used_ == block_.size() || count_ == lines_.size()) send();
            const std::size_t size = std::min(text.size(), block_.size() - used_);
            text.copy(block_.data() + used_, size);
            used_ += size;
            text.remove_prefix(size);
            if (used_ == block_.size() || (text.empty() && block_[used_ - 1] == '\n')) end_line();
        }
        return result_ >= 0;
    }

    // Sends what is collected. Returns 0 or the result of the send that failed.
    std::int32_t send() noexcept {
        if (result_ >= 0 && count_ != 0)
            result_ = smtp::send_lines(sock_, std::span(lines_).first(count_), err_);
        used_ = 0;
        start_ = 0;
        count_ = 0;
        return result_;
    }

private:
    void end_line() noexcept {
        const std::string_view line(block_.data() + start_, used_ - start_);
        lines_[count_++] = {point_, line};
        start_ = used_;
    }

    int sock_;
    std::uint32_t* err_;
    std::span<char> block_;
    std::array<smtp::TracedLine, 64> lines_;
    std::size_t count_ = 0;
    std::size_t start_ = 0;  // of the line being collected
    std::size_t used_ = 0;
    const char* point_ = "smtp1410";
    std::int32_t result_ = 0;
};

struct Piece {
    std::string_view from;
    std::string_view to;
    std::string_view subject;
    std::string_view id;
    std::int32_t number;
    std::int32_t total;
};

void put_addresses(LineSender& lines, const Piece& piece) noexcept {
    const TextSink out(lines);
    lines.at("smtp1415");
    put_date(out);
    SMTP_SetStartTime();
    lines.at("smtp1420");
    put_line(out, "From: ", piece.from);
    lines.at("smtp1425");
    put_recipients(out, piece.to);
}

// "Subject: text [1/3]", "Message-Id: <...>", "MIME-Version: 1.0",
// 'Content-Type: message/partial; number=1; total=3;' and its id on a line of its own, the end of
// the header.
void put_names(LineSender& lines, const Piece& piece) noexcept {
    const TextSink out(lines);
    std::array<char, 96> numbers;  // the fixed text and two numbers of up to eleven characters
    lines.at("smtp1430");
    lines.put("Subject: ");
    put_subject(out, piece.subject);
    common::format_into(numbers, " [%d/%d]\r\n", piece.number, piece.total);
    lines.put(numbers.data());
    lines.send();  // before the trace records of put_message_id()
    lines.at("smtp1440");
    put_message_id(out);
    lines.at("smtp1445");
    lines.put("MIME-Version: 1.0\r\n");
    lines.at("smtp1450");
    common::format_into(numbers, "Content-Type: message/partial; number=%d; total=%d;\r\n\tid=\"",
                        piece.number, piece.total);
    lines.put(numbers.data());
    lines.put(piece.id);
    lines.put("\"\r\n");
    lines.at("smtp1465");
    lines.put("\r\n");
}

std::int32_t send_piece(int sock, const char* bytes, std::int32_t length, const Piece& piece,
                        std::uint32_t* err) noexcept {
    log::TraceScope trace("smtp1400", "smtp14FF");
    SMTP_SetTimeOut(g_stMailTimeout.ulSendDataTimeOut);
    LineSender lines(sock, err);
    put_addresses(lines, piece);
    put_names(lines, piece);
    std::int32_t result = lines.send();
    if (result < 0) return trace.fail("smtp1470", result);
    result = SMTP_send(sock, bytes, length, err);
    if (result < 0) return trace.fail("smtp1475", result);
    return trace.leave(result);
}

}  // namespace
}  // namespace ovrmail::mime

std::int32_t SMTP_sendData_Partial(std::int32_t sock, const char* piece, std::int32_t length,
                                   const char* from, const char* to, const char* subject,
                                   std::int32_t number, std::int32_t total, const char* id,
                                   std::uint32_t* err) noexcept {
    using namespace ovrmail::mime;
    return send_piece(sock, piece, length,
                      {.from = text_or_empty(from),
                       .to = text_or_empty(to),
                       .subject = text_or_empty(subject),
                       .id = text_or_empty(id),
                       .number = number,
                       .total = total},
                      err);
}
