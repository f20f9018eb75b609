// initialize.cpp - opens the SMTP session: greeting, EHLO with its capabilities, HELO where EHLO
// is refused, and authentication when it is requested.
//
// Second step of the conversation, on the budget of the connection. No state of its own. RFC 5321
// 3.1, 4.1.1.1; RFC 4954 3 (AUTH capability).
#include "smtp/initialize.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "common/error_word.hpp"
#include "common/text.hpp"
#include "log/trace_scope.hpp"
#include "mail_log.h"
#include "smtp.h"
#include "smtp/auth.hpp"
#include "smtp/exchange.hpp"
#include "smtp/result.hpp"
#include "smtp/session_buffers.hpp"
#include "smtp/transport.hpp"

namespace ovrmail::smtp {
namespace {

using common::set_error;
using log::TraceScope;

using HostName = std::array<char, 256>;

std::int32_t read_greeting(int sock, std::uint32_t* err) noexcept {
    const std::int32_t rc = read_reply(sock, err);
    if (rc != kOk) return rc;
    return replied('2') ? kOk : kGreetingRefused;
}

std::int32_t local_host_name(HostName& name, std::uint32_t* err) noexcept {
    const int rc = ::gethostname(name.data(), name.size());
    if (rc != 0) {
        const int error = errno;
        MailLogSysErrWrite(g_pLogHandle, "gethostname", rc, error, nullptr);
        set_error(err, error);
        return kName;
    }
    name.back() = '\0';
    return name.front() != '\0' ? kOk : kName;
}

// "EHLO name" or "HELO name" in the command buffer, which has room for any host name.
Command greet_with(const char* verb, const HostName& host) noexcept {
    const auto buffer = command_buffer();
    const int length = common::format_into(buffer, "%s %s\r\n", verb, host.data());
    return plain({buffer.data(), static_cast<std::size_t>(std::max(length, 0))});
}

std::int32_t say_ehlo(int sock, const HostName& host, std::span<char, kReplySize> capability,
                      std::uint32_t* err) noexcept {
    const std::int32_t rc = send_command(sock, greet_with("EHLO", host), err);
    return rc == kOk ? read_ehlo_reply(sock, capability, err) : rc;
}

std::int32_t say_helo(int sock, const HostName& host, std::uint32_t* err) noexcept {
    SMTP_SetStartTime();
    const std::int32_t rc = exchange(sock, greet_with("HELO", host), err);
    if (rc != kOk) return rc;
    return replied('2') ? kOk : kHeloRefused;
}

}  // namespace

std::int32_t read_ehlo_reply(int sock, std::span<char, kReplySize> capability,
                             std::uint32_t* err) noexcept {
    TraceScope trace("AUTHR0000", "AUTHRFFFF");
    const auto reply = reply_buffer();
    std::int32_t answer = kEhloAccepted;
    set_error(err, 0);
    net::SeenAhead ahead;
    for (;;) {
        const std::int32_t rc = receive_line(sock, reply, &ahead, err);
        if (rc != kOk) return trace.fail("AUTHR0010", rc);
        log_reply_line();
        if (!replied('2')) answer = kEhloRefused;
        if (reply_detail().starts_with("AUTH ")) std::ranges::copy(reply, capability.begin());
        if (!goes_on(reply)) return trace.leave(answer);
        SMTP_SetStartTime();
    }
}

}  // namespace ovrmail::smtp

using namespace ovrmail;

std::int32_t SMTP_initialize(std::int32_t sock, const MailEntry* auth,
                             std::uint32_t* err) noexcept {
    log::TraceScope trace("smtp0100", "smtp01FF");
    const bool wants_auth = auth != nullptr && auth->kind == MAIL_AUTH_SMTP;
    std::array<char, smtp::kReplySize> capability{};
    smtp::HostName host{};

    std::int32_t rc = smtp::read_greeting(sock, err);
    if (rc != smtp::kOk) return trace.fail("smtp0105", rc);
    SMTP_SetStartTime();
    rc = smtp::local_host_name(host, err);
    if (rc != smtp::kOk) return trace.fail("smtp0110", rc);

    rc = smtp::say_ehlo(sock, host, capability, err);
    if (rc < 0) return trace.fail("smtp0115", rc);
    if (rc == smtp::kEhloRefused) {
        rc = smtp::say_helo(sock, host, err);
        if (rc != smtp::kOk) return trace.fail("smtp0120", rc);
        return trace.leave(wants_auth ? smtp::kNoMechanism : smtp::kOk);
    }
    if (!wants_auth) return trace.leave(smtp::kOk);
    const std::uint32_t offered = smtp::offered_mechanisms(common::bounded(capability));
    rc = smtp::authenticate(sock, static_cast<const MailAuthAccount*>(auth->value), offered, err);
    return rc < 0 ? trace.fail("smtp0125", rc) : trace.leave(rc);
}
