// transport.cpp - lines of a POP3 session; see transport.hpp.
//
// Owns g_ulPopTimeOut, the seconds that one reply line, and one command on its way out, may take.
#include "pop3/transport.hpp"

#include <cerrno>
#include <ctime>

#include "common/error_word.hpp"
#include "common/socket_io.hpp"
#include "mail_log.h"
#include "pop3.h"

namespace ovrmail::pop3 {
namespace {

using common::LineEnd;
using common::set_error;
using log::TraceScope;

constexpr int kEmptyLimit = 6;  // empty reads in a row
constexpr std::uint32_t kLogSent = 1;
constexpr std::uint32_t kLogReceived = 2;
constexpr std::int32_t kLogPop = 2;  // kind of a time-out record
constexpr std::string_view kPositiveStart = "+OK";

std::int32_t report_failure(const Session& session, const char* call, std::int32_t rc,
                            int error) noexcept {
    set_error(session.err, error);
    MailLogSysErrWrite(g_pLogHandle, call, rc, error, nullptr);
    return kFailed;
}

std::int32_t report_time_out(const char* call) noexcept {
    MailLogTimeOutWrite(g_pLogHandle, static_cast<std::int32_t>(g_ulPopTimeOut), kLogPop, call);
    return kTimeOut;
}

// Time-out of one line or command. A clock that was set back does not count as elapsed time.
class Deadline {
public:
    explicit Deadline(TraceHandle* trace) noexcept : trace_(trace) {}

    std::int64_t seconds_left() noexcept {
        TraceScope trace("PGTSTO0000", "PGTSTOFFFF", trace_);
        const std::time_t now = std::time(nullptr);
        if (now < start_) start_ = now;
        const std::int64_t left = std::int64_t{g_ulPopTimeOut} - (now - start_);
        trace.leave();
        return left > 0 ? left : 0;
    }

private:
    TraceHandle* trace_;
    std::time_t start_ = std::time(nullptr);
};

enum : std::int32_t { kGoOn = 1 };

// Waits for the line to go on and takes what has arrived of it. Unlike the SMTP side every byte
// that arrives is given only what is left, so the time-out bounds the line.
std::int32_t take_some(const Session& session, std::span<char> line, std::size_t& filled,
                       Deadline& deadline, int& empty) noexcept {
    const int ready = common::wait_for(session.sock, common::kReadable, deadline.seconds_left());
    if (ready == 0) return report_time_out("recv");
    if (ready < 0) return errno == EINTR ? kGoOn : report_failure(session, "select", ready, errno);
    const ssize_t taken = common::take_line(session.sock, line, filled, LineEnd::kLf, nullptr);
    if (taken > 0) {
        filled += static_cast<std::size_t>(taken);
        empty = 0;
    } else if (taken == 0) {
        set_error(session.err, errno);
        if (++empty == kEmptyLimit) return report_failure(session, "recv", 0, errno);
    } else if (taken != common::kNotNow && errno != EINTR) {
        return report_failure(session, "recv", -1, errno);
    }
    return kGoOn;
}

// The number of bytes of the line, at most 1,027, or kFailed or kTimeOut.
std::int32_t receive_line(const Session& session, Reply& reply) noexcept {
    TraceScope trace("Pop3_0c00", "Pop3_0cff", session.trace);
    reply.fill('\0');
    const auto line = std::span<char>(reply).first(reply.size() - 1);
    Deadline deadline(session.trace);
    std::size_t filled = 0;
    int empty = 0;
    while (filled < line.size() && !common::ends_line(line, filled, LineEnd::kLf)) {
        const std::int32_t rc = take_some(session, line, filled, deadline, empty);
        if (rc < 0) return trace.fail("Pop3_0c10", rc);
    }
    trace.note("Pop3_0c05", std::string_view(reply.data(), filled));
    return trace.leave(static_cast<std::int32_t>(filled));
}

// The wait of a send for the server to read on.
std::int32_t wait_for_room(const Session& session, Deadline& deadline) noexcept {
    const int ready = common::wait_for(session.sock, common::kWritable, deadline.seconds_left());
    if (ready == 0) return report_time_out("send");
    return ready > 0 || errno == EINTR ? kOk : report_failure(session, "send", ready, errno);
}

std::int32_t send_bytes(const Session& session, std::string_view wire, bool traced) noexcept {
    TraceScope trace("Pop3_0b00", "Pop3_0bff", session.trace);
    if (traced) trace.note("Pop3_0b05", wire);
    Deadline deadline(session.trace);
    while (!wire.empty()) {
        const ssize_t sent = common::send_some(session.sock, wire);
        std::int32_t rc = kOk;
        if (sent > 0)
            wire.remove_prefix(static_cast<std::size_t>(sent));
        else if (sent == common::kNotNow)
            rc = wait_for_room(session, deadline);
        else if (sent == 0 || errno != EINTR)
            rc = report_failure(session, "send", static_cast<std::int32_t>(sent), errno);
        if (rc != kOk) return trace.fail("Pop3_0b10", rc);
    }
    return trace.leave(kOk);
}

}  // namespace

std::int32_t send_command(const Session& session, std::string_view wire, const char* shown,
                          bool traced) noexcept {
    const std::int32_t rc = send_bytes(session, wire, traced);
    if (rc == kOk) MailLogWrite(g_pLogHandle, kLogSent, shown);
    return rc;
}

std::int32_t read_reply(const Session& session, Reply& reply) noexcept {
    TraceScope trace("Pop3_0a00", "Pop3_0aff", session.trace);
    const std::int32_t length = receive_line(session, reply);
    if (length < 0) return trace.fail("Pop3_0a10", length);
    MailLogWrite(g_pLogHandle, kLogReceived, reply.data());
    const std::string_view line(reply.data(), static_cast<std::size_t>(length));
    const bool positive = line.size() > kPositiveStart.size() && line.starts_with(kPositiveStart);
    return trace.leave(positive ? kPositive : kNegative);
}

}  // namespace ovrmail::pop3

using namespace ovrmail;

std::uint32_t g_ulPopTimeOut = 60;

void Pop3_SetTimeOut(std::uint32_t seconds, TraceHandle* trace) noexcept {
    log::TraceScope scope("Pop3_Set0000", "Pop3_SetFFFF", trace);
    g_ulPopTimeOut = seconds;
    scope.leave();
}
