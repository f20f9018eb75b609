// session_buffers.cpp - buffers of the SMTP conversation; see session_buffers.hpp.
//
// Every step of a conversation formats its command here and reads its reply here, so after a
// refusal the refused reply line is what SMTP_GetSmtpSvResponce hands out. One conversation at a
// time: the send entry sees to that.
#include "smtp/session_buffers.hpp"

#include <array>
#include <cstring>

#include "common/text.hpp"
#include "log/trace_scope.hpp"
#include "smtp.h"

namespace ovrmail::smtp {
namespace {

constexpr std::size_t kDetailStart = 4;  // "250 "

std::array<char, kReplySize + 1> g_reply{};  // one NUL more than a reply can fill
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
