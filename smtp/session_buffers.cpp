// session_buffers.cpp - buffers of the SMTP conversation; see session_buffers.hpp.
//
// Commands with an argument are formatted here, and every reply is read here, so that after a
// refusal SMTP_GetSmtpSvResponce returns the refused reply line. Owns g_reply and g_command; the
// send entry makes sure that only one conversation uses them. Replies: RFC 5321 4.2.
#include "smtp/session_buffers.hpp"

#include <array>
#include <cstring>

#include "common/text.hpp"
#include "log/trace_scope.hpp"
#include "smtp.h"

namespace ovrmail::smtp {
namespace {

constexpr std::size_t kDetailStart = 4;  // "250 "

std::array<char, kReplySize + 1> g_reply{};  // a reply and always a NUL
std::array<char, kCommandSize> g_command{};

}  // namespace

std::span<char, kReplySize> reply_buffer() noexcept {
    return std::span(g_reply).first<kReplySize>();
}

const char* reply_text() noexcept { return g_reply.data(); }

std::string_view reply_detail() noexcept {
    return common::skip(common::bounded(reply_buffer()), kDetailStart);
}

void clear_reply() noexcept { g_reply.fill('\0'); }

std::span<char, kCommandSize> command_buffer() noexcept { return g_command; }

}  // namespace ovrmail::smtp

using namespace ovrmail;

void SMTP_GetSmtpSvResponce(char* dst) noexcept {
    const log::TraceFrame trace("GETSMTP0000", "GETSMTPFFFF");
    if (dst == nullptr) return;
    // allow: a field of fixed size
    std::strncpy(dst, smtp::reply_text(), MAIL_DETAIL_SIZE - 1);
    dst[MAIL_DETAIL_SIZE - 1] = '\0';
}
