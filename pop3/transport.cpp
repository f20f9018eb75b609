// transport.cpp - lines of a POP3 session; see transport.hpp.
//
// Called for every command and reply of the session. Owns g_ulPopTimeOut, the seconds for one reply
// line and for sending one command. RFC 1939 3.
#include "pop3/transport.hpp"

#include <ctime>

#include "common/error_word.hpp"
#include "log/entry.hpp"
#include "log/handles.hpp"
#include "mail_log.h"
#include "pop3.h"

namespace ovrmail::pop3 {
namespace {

using log::TraceScope;

constexpr std::string_view kPositiveStart = "+OK";

// Unlike in SMTP every wait is only what is left, so that the time-out bounds the whole line.
constexpr net::ReceiveRules kReplyRules{.end = net::LineEnd::kLf, .wait_shrinks = true};
constexpr net::SendRules kSendRules{
    .empty_limit = 1, .interrupt_limit = 0, .follow = net::Follow::kNothing};

// The time-out of one line or command. A clock that was set back does not count as elapsed time.
class Deadline {
public:
    explicit Deadline(TraceHandle* trace) noexcept : trace_(trace) {}

    net::Budget budget() noexcept { return {seconds_left, nullptr, log::flush_log, this}; }

private:
    static std::int64_t seconds_left(void* clock) noexcept {
        auto& deadline = *static_cast<Deadline*>(clock);
        const log::TraceFrame trace("PGTSTO0000", "PGTSTOFFFF", deadline.trace_);
        const std::time_t now = std::time(nullptr);
        if (now < deadline.start_) deadline.start_ = now;
        const std::int64_t left = std::int64_t{g_ulPopTimeOut} - (now - deadline.start_);
        return left > 0 ? left : 0;
    }

    TraceHandle* trace_;
    std::time_t start_ = std::time(nullptr);
};

// The number of bytes of the line, at most 1,027, or kFailed or kTimeOut.
std::int32_t receive_line(const Session& session, Reply& reply) noexcept {
    TraceScope trace("Pop3_0c00", "Pop3_0cff", session.trace);
    reply.back() = '\0';
    const auto line = std::span<char>(reply).first(reply.size() - 1);
    Deadline deadline(session.trace);
    std::size_t filled = 0;
    const net::Report report =
        net::receive_line(session.sock, line, kReplyRules, deadline.budget(), nullptr, filled);
    if (!report.done()) return trace.fail("Pop3_0c10", judge(report, kFailed, session.err));
    trace.note("Pop3_0c05", std::string_view(reply.data(), filled));
    return trace.leave(static_cast<std::int32_t>(filled));
}

std::int32_t send_bytes(const Session& session, std::string_view wire, bool traced) noexcept {
    TraceScope trace("Pop3_0b00", "Pop3_0bff", session.trace);
    if (traced) trace.note("Pop3_0b05", wire);
    Deadline deadline(session.trace);
    const net::Report report = net::Sender(session.sock, wire, kSendRules, deadline.budget()).run();
    if (!report.done()) return trace.fail("Pop3_0b10", judge(report, kFailed, session.err));
    return trace.leave(kOk);
}

}  // namespace

Result judge(const net::Report& report, Result failure, std::uint32_t* err) noexcept {
    if (report.end == net::Report::End::kTimedOut) {
        MailLogTimeOutWrite(g_pLogHandle, static_cast<std::int32_t>(g_ulPopTimeOut), log::kPop,
                            report.call);
        return kTimeOut;
    }
    common::set_error(err, report.error);
    MailLogSysErrWrite(g_pLogHandle, report.call, report.result, report.error, nullptr);
    return failure;
}

std::int32_t send_command(const Session& session, std::string_view wire, const char* shown,
                          bool traced) noexcept {
    const std::int32_t rc = send_bytes(session, wire, traced);
    if (rc == kOk) MailLogWrite(g_pLogHandle, log::kSent, shown);
    return rc;
}

std::int32_t read_reply(const Session& session, Reply& reply) noexcept {
    TraceScope trace("Pop3_0a00", "Pop3_0aff", session.trace);
    const std::int32_t length = receive_line(session, reply);
    if (length < 0) return trace.fail("Pop3_0a10", length);
    MailLogWrite(g_pLogHandle, log::kReceived, reply.data());
    const std::string_view line(reply.data(), static_cast<std::size_t>(length));
    const bool positive = line.size() > kPositiveStart.size() && line.starts_with(kPositiveStart);
    return trace.leave(positive ? kPositive : kNegative);
}

}  // namespace ovrmail::pop3

using namespace ovrmail;

std::uint32_t g_ulPopTimeOut = 60;

void Pop3_SetTimeOut(std::uint32_t seconds, TraceHandle* trace) noexcept {
    const log::TraceFrame frame("Pop3_Set0000", "Pop3_SetFFFF", trace);
    g_ulPopTimeOut = seconds;
}
