// lines.cpp - receives a line and sends a buffer, each within a time budget; see lines.hpp.
//
// Every command, reply and block of a mail passes through here, for SMTP and POP3. No state beyond
// the caller's Sender and SeenAhead. Lines and time-outs: RFC 5321 sections 2.3.8 and 4.5.3.2,
// RFC 1939 section 3.
#include "net/lines.hpp"

#include <cerrno>
#include <cstring>

namespace ovrmail::net {
namespace {

constexpr int kEmptyReads = 6;  // in a row

constexpr Report kDone{};

}  // namespace

Report receive_line(int fd, std::span<char> line, const ReceiveRules& rules, const Budget& budget,
                    SeenAhead* ahead, std::size_t& filled) noexcept {
    std::memset(line.data(), 0, line.size());
    filled = 0;
    std::int64_t wait = budget.seconds_left(budget.clock);
    bool wait_holds = true;
    for (int empty = 0; filled < line.size() && !ends_line(line, filled, rules.end);) {
        if (!wait_holds) wait = budget.seconds_left(budget.clock);
        wait_holds = false;
        if (ahead == nullptr || ahead->empty()) {  // otherwise the bytes are there already
            budget.before_wait();
            const int ready = wait_for(fd, kReadable, wait);
            if (ready == 0) return timed_out("recv");
            if (ready < 0 && errno == EINTR) continue;
            if (ready < 0) return failed("select", ready, errno);
        }
        const ssize_t taken = take_line(fd, line, filled, rules.end, ahead);
        if (taken > 0) {
            filled += static_cast<std::size_t>(taken);
            empty = 0;
        } else if (taken == 0) {
            if (++empty == kEmptyReads) return failed("recv", 0, errno);
        } else if (taken != kNotNow && errno != EINTR) {
            return failed("recv", taken, errno);
        }
        wait_holds = (taken > 0 || taken == kNotNow) && !rules.wait_shrinks;
    }
    return kDone;
}

bool Sender::step(Report& report) noexcept {
    report = kDone;
    if (took_part_) {
        took_part_ = false;
        report = go_on(1, 0);
    }
    while (report.done()) {
        const ssize_t sent = send_some(fd_, rest_, rules_.follow);
        if (sent > 0) {
            rest_ = rest_.subspan(static_cast<std::size_t>(sent));
            took_part_ = !rest_.empty();
            return rest_.empty();
        }
        report = go_on(sent, errno);
    }
    return true;
}

Report Sender::run() noexcept {
    Report report;
    while (!step(report)) continue;
    return report;
}

// After a send that took only a part the kernel's buffer is full: wait instead of trying at once.
Report Sender::go_on(ssize_t sent, int error) noexcept {
    if (sent == kNotNow) return wait_for_room();
    if (sent < 0) return on_error(error);
    if (budget_.is_spent != nullptr && budget_.is_spent(budget_.clock)) return timed_out("send");
    if (sent > 0) return wait_for_room();
    return ++empty_ < rules_.empty_limit ? kDone : failed("send", 0, error);
}

Report Sender::on_error(int error) noexcept {
    const bool again = error == EINTR && ++interrupted_ != rules_.interrupt_limit;
    return again ? kDone : failed("send", -1, error);
}

// Waits until the kernel can take more bytes. Only the budget bounds this wait: any signal handler
// interrupts poll(), also one installed with SA_RESTART, so interruptions are not counted.
Report Sender::wait_for_room() noexcept {
    budget_.before_wait();
    const int ready = wait_for(fd_, kWritable, budget_.seconds_left(budget_.clock));
    if (ready == 0) return timed_out("send");
    return ready > 0 || errno == EINTR ? kDone : on_error(errno);
}

}  // namespace ovrmail::net
