// exchange.cpp - one command and its reply (RFC 5321 4.1, 4.2): send, log, read, log.
//
// Every command of a conversation is sent here. Log and trace get only what the Command names for
// them, so that no secret reaches either. No state: the reply is in session_buffers.cpp.
#include "smtp/exchange.hpp"

#include "log/entry.hpp"
#include "mail_log.h"
#include "smtp.h"
#include "smtp/result.hpp"
#include "smtp/session_buffers.hpp"

namespace ovrmail::smtp {
namespace {

constexpr std::int32_t kUntraced = 0;

}  // namespace

std::int32_t send_command(int sock, const Command& command, std::uint32_t* err) noexcept {
    const auto length = static_cast<std::int32_t>(command.wire.size());
    const std::int32_t rc = command.traced
                                ? SMTP_send(sock, command.wire.data(), length, err)
                                : SMTP_send2(sock, command.wire.data(), length, err, kUntraced);
    if (rc == kOk) MailLogWrite(g_pLogHandle, log::kSent, command.shown);
    return rc;
}

std::int32_t read_reply(int sock, std::uint32_t* err) noexcept {
    const auto reply = reply_buffer();
    const std::int32_t rc =
        SMTP_returnMessage(sock, reply.data(), static_cast<std::int32_t>(reply.size()), err);
    if (rc == kOk) log_reply_line();
    return rc;
}

void log_reply_line() noexcept { MailLogWrite(g_pLogHandle, log::kReceived, reply_text()); }

std::int32_t exchange(int sock, const Command& command, std::uint32_t* err) noexcept {
    const std::int32_t rc = send_command(sock, command, err);
    return rc == kOk ? read_reply(sock, err) : rc;
}

}  // namespace ovrmail::smtp
