// pop_before_smtp.cpp - log in to a POP3 server and out again, for servers that take mail only
// from hosts that have just read their mailbox.
//
// Called when the authentication option is checked, before anything is composed. No state; the
// dialogue is in pop3/ (RFC 1939).
#include <sys/select.h>

#include <cstdint>
#include <span>
#include <string_view>

#include "common/retry.hpp"
#include "common/text.hpp"
#include "common/unique_fd.hpp"
#include "log/handles.hpp"
#include "mailapi/result_map.hpp"
#include "mailapi/steps.hpp"
#include "pop3.h"
#include "pop3/transport.hpp"

namespace ovrmail::mailapi {
namespace {

constexpr std::uint32_t kTimeOutDefault = 60;

// At least `least` characters and a NUL in the field, on one line: a line break in a name or
// password would add POP3 commands.
bool is_valid_field(std::span<const char> field, std::size_t least) noexcept {
    const std::string_view text = common::bounded(field);
    return text.size() >= least && text.size() < field.size() &&
           text.find_first_of("\r\n") == text.npos;
}

bool is_valid(const MailPopAccount& account) noexcept {
    return is_valid_field(account.szUser, 1) && is_valid_field(account.szPassword, 0) &&
           is_valid_field(account.szHost, 1) && account.lWaitMs >= 0 &&
           account.lWaitMs <= MAIL_POP_WAIT_MAX;
}

// After a refusal the detail buffer keeps the server's reply, which pop3/ has put there.
std::int32_t map_failure(std::int32_t code, std::span<char, kDetailSize> detail,
                         std::uint32_t err) noexcept {
    if (code == pop3::kTimeOut) return MAIL_E_POP_TIMEOUT;
    if (code != pop3::kFailed) return MAIL_E_POP_REFUSED;
    detail_number(detail, err);
    return MAIL_E_POP_SYSTEM;
}

// An interrupted select() leaves the remaining time in `rest`.
void wait_ms(std::int32_t ms) noexcept {
    if (ms == 0) return;
    log::flush_log();
    constexpr long kUsPerMs = 1000;
    timeval rest{ms / 1000, ms % 1000 * kUsPerMs};
    common::retry_eintr(common::kNoLimit,
                        [&] { return ::select(0, nullptr, nullptr, nullptr, &rest); });
}

// The POP3 session with its own connection.
std::int32_t run_session(const MailPopAccount& account, std::span<char, kDetailSize> detail,
                         log::TraceScope& trace) noexcept {
    std::uint32_t err = 0;
    const common::UniqueFd sock(Pop3_Connect(account.szHost, account.ulPort, &err, g_trace));
    if (!sock.valid()) {
        detail_number(detail, err);
        return trace.fail("BEFORE0020", MAIL_E_POP_CONNECT, err);
    }
    std::int32_t rc =
        Pop3_Login(sock.get(), account.szUser, account.szPassword, detail.data(), &err, g_trace);
    if (rc < 0) return trace.fail("BEFORE0030", map_failure(rc, detail, err), err);
    rc = Pop3_STAT(sock.get(), detail.data(), &err, g_trace);
    if (rc < 0) return trace.fail("BEFORE0040", map_failure(rc, detail, err), err);
    rc = Pop3_Logout(sock.get(), detail.data(), &err, g_trace);
    if (rc < 0) {
        trace.mark("BEFORE0050", rc);
        detail[0] = '\0';
    }
    return 0;
}

}  // namespace

std::int32_t pop_before_smtp(const MailPopAccount& account,
                             std::span<char, kDetailSize> detail) noexcept {
    log::TraceScope trace("BEFORE0000", "BEFOREFFFF");
    if (!is_valid(account)) return trace.fail("BEFORE0010", MAIL_E_ARGUMENT);
    const std::uint32_t seconds = account.usTimeOut;
    const bool in_range = seconds >= MAIL_TIMEOUT_MIN && seconds <= MAIL_TIMEOUT_MAX;
    Pop3_SetTimeOut(in_range ? seconds : kTimeOutDefault, g_trace);
    if (const std::int32_t rc = run_session(account, detail, trace); rc != 0) return rc;
    wait_ms(account.lWaitMs);
    return trace.leave(0);
}

}  // namespace ovrmail::mailapi
