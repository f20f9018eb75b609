// transport.cpp - sends bytes and receives replies: every command passes through here, and with
// blocks.cpp every block of a mail.
//
// No state: a reply line is taken from the socket when it is needed, and nothing behind it, so that
// others can use the descriptor between two calls. The running budget bounds all waits. RFC
// 5321 4.2 (replies), 4.5.3.2 (time-outs).
#include "smtp/transport.hpp"

#include <cerrno>

#include "common/error_word.hpp"
#include "log/entry.hpp"
#include "log/handles.hpp"
#include "log/trace_scope.hpp"
#include "mail_log.h"
#include "smtp.h"
#include "smtp/session_buffers.hpp"

namespace ovrmail::smtp {
namespace {

using log::TraceScope;

constexpr std::int32_t kTraced = 1;  // trace flag of SMTP_send2

// Kept: a byte that arrives does not shorten the wait for the next one. Callers with slow servers
// rely on this documented wait.
constexpr net::ReceiveRules kReplyRules{.end = net::LineEnd::kCrLf, .wait_shrinks = false};

std::int64_t seconds_left(void* /*clock*/) noexcept {
    timeval left{};
    SMTP_GetSelectTimeOut(&left);
    return left.tv_sec;
}

bool is_spent(void* /*clock*/) noexcept { return SMTP_CheckOverTimeOut() != kOk; }

// Invalid buffers fail like the system call that they are for.
net::Report refuse(const char* call) noexcept { return net::failed(call, -1, EINVAL); }

}  // namespace

net::Budget running_budget() noexcept { return {seconds_left, is_spent, log::flush_log, nullptr}; }

net::SendRules send_rules(net::Follow follow) noexcept {
    return {.empty_limit = 6, .interrupt_limit = 6, .follow = follow};
}

Result judge(const net::Report& report, Result failure, std::uint32_t* err) noexcept {
    common::set_error(err, report.error);
    switch (report.end) {
        case net::Report::End::kDone:
            return kOk;
        case net::Report::End::kTimedOut:
            MailLogTimeOutWrite(g_pLogHandle, static_cast<std::int32_t>(g_ulTimeOut), log::kSmtp,
                                report.call);
            return kTimeOut;
        case net::Report::End::kFailed:
            break;
    }
    MailLogSysErrWrite(g_pLogHandle, report.call, report.result, report.error, nullptr);
    return failure;
}

std::int32_t receive_line(int sock, std::span<char> line, net::SeenAhead* ahead,
                          std::uint32_t* err) noexcept {
    TraceScope trace("smtp0f00", "smtp0fFF");
    std::size_t filled = 0;
    const net::Report report =
        line.empty() ? refuse("recv")
                     : net::receive_line(sock, line, kReplyRules, running_budget(), ahead, filled);
    const Result result = judge(report, kReceive, err);
    trace.note("smtp0f05", std::string_view(line.data(), filled));
    return trace.finish("smtp0f10", result);
}

}  // namespace ovrmail::smtp

using namespace ovrmail;
using log::TraceScope;

namespace {

// Empty for null or a size below 1; an empty line is refused.
std::span<char> line_of(char* buf, std::int32_t size) noexcept {
    return {buf, buf != nullptr && size > 0 ? static_cast<std::size_t>(size) : 0};
}

}  // namespace

std::int32_t SMTP_send(std::int32_t sock, const char* buf, std::int32_t len,
                       std::uint32_t* err) noexcept {
    TraceScope trace("SMTP_s0000", "SMTP_sFFFF");
    const std::int32_t rc = SMTP_send2(sock, buf, len, err, smtp::kTraced);
    return trace.finish("SMTP_s0010", rc);
}

std::int32_t SMTP_send2(std::int32_t sock, const char* buf, std::int32_t len, std::uint32_t* err,
                        std::int32_t trace_flag) noexcept {
    TraceScope trace("smtp0e00", "smtp0eFF");
    if (len < 0 || (buf == nullptr && len > 0))
        return trace.fail("smtp0e01", smtp::judge(smtp::refuse("send"), smtp::kSend, err));
    const std::span<const char> bytes(buf, static_cast<std::size_t>(len));
    if (trace_flag == smtp::kTraced)
        trace.note("smtp0e05", std::string_view(bytes.data(), bytes.size()));
    const auto rules = smtp::send_rules(net::Follow::kNothing);
    const net::Report report = net::Sender(sock, bytes, rules, smtp::running_budget()).run();
    const smtp::Result result = smtp::judge(report, smtp::kSend, err);
    return trace.finish("smtp0e10", result);
}

std::int32_t SMTP_recv(std::int32_t sock, char* buf, std::int32_t size,
                       std::uint32_t* err) noexcept {
    return smtp::receive_line(sock, line_of(buf, size), nullptr, err);
}

std::int32_t SMTP_returnMessage(std::int32_t sock, char* buf, std::int32_t size,
                                std::uint32_t* err) noexcept {
    TraceScope trace("smtp0d00", "smtp0dFF");
    common::set_error(err, 0);
    const std::span<char> line = line_of(buf, size);
    net::SeenAhead ahead;
    do {
        const std::int32_t rc = smtp::receive_line(sock, line, &ahead, err);
        if (rc != smtp::kOk) return trace.fail("smtp0d10", rc);
    } while (smtp::goes_on(line));
    return trace.leave(smtp::kOk);
}
