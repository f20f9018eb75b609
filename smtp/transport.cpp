// transport.cpp - bytes out, reply lines in: every command and every block of a mail passes here.
//
// Owns no buffer of bytes: a reply line is taken from the socket as it is needed and nothing behind
// it, so the descriptor can be handed on at any time. All waits are bounded by the running budget.
// RFC 5321 4.2 (replies), 4.5.3.2 (time-outs).
#include "smtp/transport.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include "common/error_word.hpp"
#include "common/socket_io.hpp"
#include "log/trace_scope.hpp"
#include "mail_log.h"
#include "smtp.h"
#include "smtp/result.hpp"
#include "smtp/session_buffers.hpp"

namespace ovrmail::smtp {
namespace {

using common::LineEnd;
using common::set_error;
using log::TraceScope;

constexpr int kEmptyLimit = 6;        // empty sends, or empty reads in a row
constexpr int kInterruptLimit = 6;    // interrupted sends
constexpr std::int32_t kLogSmtp = 1;  // kind of a time-out record
constexpr std::int32_t kTraced = 1;   // trace flag of SMTP_send2

std::int64_t seconds_left() noexcept {
    timeval left{};
    SMTP_GetSelectTimeOut(&left);
    return left.tv_sec;
}

Result report_failure(const char* call, std::int32_t rc, int error, Result result) noexcept {
    MailLogSysErrWrite(g_pLogHandle, call, rc, error, nullptr);
    return result;
}

Result report_time_out(const char* call) noexcept {
    MailLogTimeOutWrite(g_pLogHandle, static_cast<std::int32_t>(g_ulTimeOut), kLogSmtp, call);
    return kTimeOut;
}

Result refuse_arguments(const char* call, std::uint32_t* err, Result result) noexcept {
    set_error(err, EINVAL);
    return report_failure(call, -1, EINVAL, result);
}

// One buffer on its way out.
class Outgoing {
public:
    Outgoing(int sock, std::span<const char> bytes, std::uint32_t* err,
             common::Follow follow = common::Follow::kNothing) noexcept
        : sock_(sock), rest_(bytes), err_(err), follow_(follow) {}

    // Sends everything. `begins_unit(left)` is asked after each progress whether, with so many
    // bytes left, a new unit has begun; a unit has its own counts.
    template <class BeginsUnit>
    Result run(BeginsUnit begins_unit) noexcept {
        for (;;) {
            const ssize_t sent = common::send_some(sock_, rest_, follow_);
            if (sent > 0) {
                rest_ = rest_.subspan(static_cast<std::size_t>(sent));
                if (rest_.empty()) return set_error(err_, 0), kOk;
                if (begins_unit(rest_.size())) empty_ = interrupted_ = 0;
            }
            const Result result = after(sent, errno);
            if (result != kOk) return result;
        }
    }

private:
    Result after(ssize_t sent, int error) noexcept {
        if (sent == common::kNotNow) return wait_for_room();
        if (sent < 0) return on_error(error);
        if (sent == 0) set_error(err_, error);
        if (SMTP_CheckOverTimeOut() != kOk) return report_time_out("send");
        if (sent > 0) return wait_for_room();
        return ++empty_ < kEmptyLimit ? kOk : report_failure("send", 0, error, kSend);
    }

    Result on_error(int error) noexcept {
        set_error(err_, error);
        if (error == EINTR && ++interrupted_ < kInterruptLimit) return kOk;
        return report_failure("send", -1, error, kSend);
    }

    // The part of a send in which the kernel waits for the server to read on. A send that took
    // only part has filled the kernel's room, so the next one would only say so. The budget alone
    // bounds it: poll() is interrupted by every handler, also by one that lets a send go on.
    Result wait_for_room() noexcept {
        const int ready = common::wait_for(sock_, common::kWritable, seconds_left());
        if (ready == 0) return report_time_out("send");
        return ready > 0 || errno == EINTR ? kOk : on_error(errno);
    }

    int sock_;
    std::span<const char> rest_;
    std::uint32_t* err_;
    common::Follow follow_;
    int empty_ = 0;
    int interrupted_ = 0;
};

// One reply line on its way in.
class Incoming {
public:
    Incoming(int sock, std::span<char> line, common::SeenAhead* ahead, std::uint32_t* err) noexcept
        : sock_(sock), line_(line), ahead_(ahead), err_(err) {}

    // Kept: a byte does not shorten the wait for the next one. Every wait is what was left when
    // the line began, or after the last interruption or empty read.
    Result run() noexcept {
        std::memset(line_.data(), 0, line_.size());
        wait_ = seconds_left();
        while (filled_ < line_.size() && !common::ends_line(line_, filled_, LineEnd::kCrLf)) {
            Result result = seen_ahead() ? kOk : wait_readable();
            if (result == kOk) result = take();
            if (result != kOk && result != kAgain) return result;
        }
        set_error(err_, 0);
        return kOk;
    }

    [[nodiscard]] std::string_view text() const noexcept { return {line_.data(), filled_}; }

private:
    // More of the reply was seen already: there is nothing to wait for.
    [[nodiscard]] bool seen_ahead() const noexcept { return ahead_ != nullptr && !ahead_->empty(); }

    Result wait_readable() noexcept {
        const int ready = common::wait_for(sock_, common::kReadable, wait_);
        const int error = errno;
        set_error(err_, error);
        if (ready == 0) return report_time_out("recv");
        return ready > 0 ? kOk : on_error("select", error);
    }

    Result take() noexcept {
        const ssize_t taken = common::take_line(sock_, line_, filled_, LineEnd::kCrLf, ahead_);
        const int error = errno;
        if (taken == common::kNotNow) return kOk;
        if (taken > 0) {
            empty_ = 0;
            filled_ += static_cast<std::size_t>(taken);
            return kOk;
        }
        set_error(err_, error);
        if (taken < 0) return on_error("recv", error);
        if (++empty_ == kEmptyLimit) return report_failure("recv", 0, error, kReceive);
        return again();
    }

    Result on_error(const char* call, int error) noexcept {
        return error == EINTR ? again() : report_failure(call, -1, error, kReceive);
    }

    Result again() noexcept {
        wait_ = seconds_left();
        return kAgain;
    }

    static constexpr Result kAgain = static_cast<Result>(1);  // never leaves this class

    int sock_;
    std::span<char> line_;
    common::SeenAhead* ahead_;
    std::uint32_t* err_;
    std::int64_t wait_ = 0;
    std::size_t filled_ = 0;
    int empty_ = 0;
};

enum Clock : bool { kRunsOn, kRestarts };  // what the clock does when a unit begins

struct Unit {
    std::size_t length;
    const char* point;  // null: not noted
};

// A buffer that leaves in units, `unit_of(n)` being unit n. Each has the trace records of an
// SMTP_send of its own, written as it begins and ends.
template <class UnitOf>
class Units {
public:
    Units(std::span<const char> bytes, UnitOf unit_of, Clock clock) noexcept
        : bytes_(bytes), unit_of_(unit_of), clock_(clock) {}

    Result send(int sock, std::uint32_t* err) noexcept {
        if (bytes_.empty()) return kOk;
        begin_up_to(0);
        const Result result = Outgoing(sock, bytes_, err, common::Follow::kMore)
                                  .run([this](std::size_t left) noexcept {
                                      return begin_up_to(bytes_.size() - left);
                                  });
        if (result == kOk) begin_up_to(bytes_.size());
        end(result);
        return result;
    }

private:
    // Begins the units that start at or below `offset`. Returns whether there are any.
    bool begin_up_to(std::size_t offset) noexcept {
        const std::size_t before = next_;
        while (next_ <= offset && next_ < bytes_.size()) {
            end(kOk);
            if (clock_ == kRestarts) SMTP_SetStartTime();
            const Unit unit = unit_of_(count_++);
            const std::string_view text(bytes_.data() + next_,
                                        std::min(unit.length, bytes_.size() - next_));
            if (unit.point != nullptr) log::note(unit.point, text);
            outer_.emplace("SMTP_s0000", "SMTP_sFFFF");
            inner_.emplace("smtp0e00", "smtp0eFF");
            inner_->note("smtp0e05", text);
            next_ += text.size();
        }
        return next_ != before;
    }

    void end(Result result) noexcept {
        if (!inner_) return;
        result == kOk ? inner_->leave(result) : inner_->fail("smtp0e10", result);
        result == kOk ? outer_->leave(result) : outer_->fail("SMTP_s0010", result);
        inner_.reset();
        outer_.reset();
    }

    std::span<const char> bytes_;
    UnitOf unit_of_;
    Clock clock_;
    std::optional<TraceScope> outer_, inner_;
    std::size_t next_ = 0;  // where the next unit begins
    std::size_t count_ = 0;
};

}  // namespace

std::int32_t send_blocks(int sock, std::span<const char> bytes, std::size_t block,
                         std::uint32_t* err) noexcept {
    const auto unit = [block](std::size_t) { return Unit{block, nullptr}; };
    return Units(bytes, unit, kRestarts).send(sock, err);
}

std::int32_t send_lines(int sock, std::span<const TracedLine> lines, std::uint32_t* err) noexcept {
    if (lines.empty()) return kOk;
    const std::string_view last = lines.back().text;
    const std::span<const char> bytes(lines.front().text.data(), last.data() + last.size());
    const auto unit = [lines](std::size_t n) { return Unit{lines[n].text.size(), lines[n].point}; };
    return Units(bytes, unit, kRunsOn).send(sock, err);
}

std::int32_t receive_line(int sock, char* buf, std::int32_t size, common::SeenAhead* ahead,
                          std::uint32_t* err) noexcept {
    TraceScope trace("smtp0f00", "smtp0fFF");
    if (buf == nullptr || size <= 0)
        return trace.fail("smtp0f01", refuse_arguments("recv", err, kReceive));
    Incoming line(sock, {buf, static_cast<std::size_t>(size)}, ahead, err);
    const Result result = line.run();
    trace.note("smtp0f05", line.text());
    return result == kOk ? trace.leave(result) : trace.fail("smtp0f10", result);
}

}  // namespace ovrmail::smtp

using namespace ovrmail;
using log::TraceScope;

std::int32_t SMTP_send(std::int32_t sock, const char* buf, std::int32_t len,
                       std::uint32_t* err) noexcept {
    TraceScope trace("SMTP_s0000", "SMTP_sFFFF");
    const std::int32_t rc = SMTP_send2(sock, buf, len, err, smtp::kTraced);
    return rc == smtp::kOk ? trace.leave(rc) : trace.fail("SMTP_s0010", rc);
}

std::int32_t SMTP_send2(std::int32_t sock, const char* buf, std::int32_t len, std::uint32_t* err,
                        std::int32_t trace_flag) noexcept {
    TraceScope trace("smtp0e00", "smtp0eFF");
    if (len < 0 || (buf == nullptr && len > 0))
        return trace.fail("smtp0e01", smtp::refuse_arguments("send", err, smtp::kSend));
    const std::span<const char> bytes(buf, static_cast<std::size_t>(len));
    if (trace_flag == smtp::kTraced)
        trace.note("smtp0e05", std::string_view(bytes.data(), bytes.size()));
    const smtp::Result result =
        smtp::Outgoing(sock, bytes, err).run([](std::size_t) noexcept { return false; });
    return result == smtp::kOk ? trace.leave(result) : trace.fail("smtp0e10", result);
}

std::int32_t SMTP_recv(std::int32_t sock, char* buf, std::int32_t size,
                       std::uint32_t* err) noexcept {
    return smtp::receive_line(sock, buf, size, nullptr, err);
}

std::int32_t SMTP_returnMessage(std::int32_t sock, char* buf, std::int32_t size,
                                std::uint32_t* err) noexcept {
    TraceScope trace("smtp0d00", "smtp0dFF");
    common::set_error(err, 0);
    common::SeenAhead ahead;
    do {
        const std::int32_t rc = smtp::receive_line(sock, buf, size, &ahead, err);
        if (rc != smtp::kOk) return trace.fail("smtp0d10", rc);
    } while (smtp::goes_on({buf, static_cast<std::size_t>(size)}));
    return trace.leave(smtp::kOk);
}
