// commands.cpp - the commands of a mail transaction, in the order of a send: MAIL and RCPT, DATA,
// end of data, RSET between the pieces of a split mail, QUIT.
//
// Each installs the budget of its phase (RSET only restarts the clock), so that a slow step does
// not shorten the next one. State is in session_buffers.cpp and timeout.cpp only. RFC 5321 4.1.1.2
// to 4.1.1.5 and 4.1.1.10; time-outs 4.5.3.2.
#include "common/error_word.hpp"
#include "common/text.hpp"
#include "log/trace_scope.hpp"
#include "smtp.h"
#include "smtp/exchange.hpp"
#include "smtp/result.hpp"
#include "smtp/session_buffers.hpp"
#include "smtp/timeout.hpp"

namespace ovrmail::smtp {
namespace {

using common::set_error;
using log::TraceScope;

constexpr std::size_t kRecipientMax = 307;  // characters

// Refuses a text that does not fit its command, as if the server had refused it.
std::int32_t refuse(Result result, std::uint32_t* err) noexcept {
    clear_reply();
    set_error(err, 0);
    return result;
}

// Sends one command; an answer that does not begin with `accepted` is a refusal.
std::int32_t say(int sock, std::string_view text, char accepted, Result refused,
                 std::uint32_t* err) noexcept {
    const std::int32_t rc = exchange(sock, plain(text), err);
    if (rc != kOk || replied(accepted)) return rc;
    set_error(err, 0);
    return refused;
}

// Sends the command of `length` characters in the command buffer (-1: it did not fit).
std::int32_t say_formatted(int sock, int length, Result refused, std::uint32_t* err) noexcept {
    if (length < 0) return refuse(refused, err);
    return say(sock, {command_buffer().data(), static_cast<std::size_t>(length)}, '2', refused,
               err);
}

std::int32_t mail_from(int sock, const char* sender, std::uint32_t* err) noexcept {
    start_budget(g_stMailTimeout.ulMailFromTimeOut);
    const int length = common::format_into(command_buffer(), "MAIL FROM:<%s>\r\n",
                                           sender != nullptr ? sender : "");
    return say_formatted(sock, length, kMailRefused, err);
}

std::int32_t rcpt_to(int sock, std::string_view recipient, std::uint32_t* err) noexcept {
    if (recipient.size() > kRecipientMax) return refuse(kRcptRefused, err);
    start_budget(g_stMailTimeout.ulRcptToTimeOut);
    const int length = common::format_into(command_buffer(), "RCPT TO:<%.*s>\r\n",
                                           static_cast<int>(recipient.size()), recipient.data());
    return say_formatted(sock, length, kRcptRefused, err);
}

}  // namespace
}  // namespace ovrmail::smtp

using namespace ovrmail;
using log::TraceScope;

// Kept: nothing is trimmed, an empty element of the list is a recipient with empty brackets, and
// one refusal ends the transaction. Existing callers rely on it: all recipients get the mail or
// none.
std::int32_t SMTP_MAIL(std::int32_t sock, const char* sender, const char* recipients,
                       std::uint32_t* err) noexcept {
    TraceScope trace("SMTP0200-2", "SMTP02FF-2");
    std::int32_t rc = smtp::mail_from(sock, sender, err);
    if (rc != smtp::kOk) return trace.fail("smtp0145", rc);

    std::string_view rest(recipients != nullptr ? recipients : "");
    for (bool last = false; !last;) {
        const std::size_t comma = rest.find(',');
        rc = smtp::rcpt_to(sock, rest.substr(0, comma), err);
        if (rc != smtp::kOk) return trace.fail("smtp0191", rc);
        last = comma == std::string_view::npos;
        if (!last) rest.remove_prefix(comma + 1);
    }
    return trace.leave(smtp::kOk);
}

std::int32_t SMTP_startData(std::int32_t sock, std::uint32_t* err) noexcept {
    TraceScope trace("smtp0200", "smtp02FF");
    smtp::start_budget(g_stMailTimeout.ulDataTimeOut);
    const std::int32_t rc = smtp::say(sock, "DATA\r\n", '3', smtp::kDataRefused, err);
    return trace.finish("smtp0210", rc);
}

std::int32_t SMTP_endData(std::int32_t sock, std::uint32_t* err) noexcept {
    TraceScope trace("smtp0400", "smtp04FF");
    smtp::start_budget(g_stMailTimeout.ulEndDataTimeOut);
    // The CR LF in front ends a last line that has no line end.
    const std::int32_t rc = smtp::say(sock, "\r\n.\r\n", '2', smtp::kEndRefused, err);
    return trace.finish("smtp0410", rc);
}

std::int32_t SMTP_RSET(std::int32_t sock, std::uint32_t* err) noexcept {
    TraceScope trace("RSET0000", "RSETFFFF");
    smtp::set_error(err, 0);
    SMTP_SetStartTime();
    const std::int32_t rc = smtp::say(sock, "RSET\r\n", '2', smtp::kResetRefused, err);
    return trace.finish("RSET0010", rc);
}

// The server has accepted the mail by now: its reply to QUIT, or no reply, changes nothing.
std::int32_t SMTP_QUIT(std::int32_t sock, std::uint32_t* err) noexcept {
    TraceScope trace("SMTP0400-2", "SMTP04FF-2");
    smtp::start_budget(smtp::kQuitBudget);
    const std::int32_t rc = smtp::send_command(sock, smtp::plain("QUIT\r\n"), err);
    if (rc != smtp::kOk) return trace.fail("smtp0410-2", rc);
    const std::int32_t answer = smtp::read_reply(sock, err);
    if (answer != smtp::kOk) trace.mark("smtp0420-2", answer);
    return trace.leave(smtp::kOk);
}
