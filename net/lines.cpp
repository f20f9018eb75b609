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

// One line on its way in.
class LineReceiver {
public:
    LineReceiver(int fd, std::span<char> line, const ReceiveRules& rules, const Budget& budget,
                 SeenAhead* ahead, std::size_t& filled) noexcept
        : fd_(fd), line_(line), rules_(rules), budget_(budget), ahead_(ahead), filled_(filled) {}

    Report run() noexcept {
        std::memset(line_.data(), 0, line_.size());
        filled_ = 0;
        wait_ = budget_.seconds_left(budget_.clock);
        while (filled_ < line_.size() && !ends_line(line_, filled_, rules_.end)) {
            if (!wait_holds_) wait_ = budget_.seconds_left(budget_.clock);
            wait_holds_ = false;
            bool arrived = ahead_ != nullptr && !ahead_->empty();
            Report report = arrived ? kDone : wait_for_bytes(arrived);
            if (arrived) report = take();
            if (!report.done()) return report;
        }
        return kDone;
    }

private:
    // Done without bytes when a signal has interrupted the wait.
    Report wait_for_bytes(bool& arrived) noexcept {
        budget_.before_wait();
        const int ready = wait_for(fd_, kReadable, wait_);
        arrived = ready > 0;
        if (ready == 0) return timed_out("recv");
        return arrived || errno == EINTR ? kDone : failed("select", ready, errno);
    }

    Report take() noexcept {
        const ssize_t taken = take_line(fd_, line_, filled_, rules_.end, ahead_);
        wait_holds_ = (taken > 0 || taken == kNotNow) && !rules_.wait_shrinks;
        if (taken > 0) {
            filled_ += static_cast<std::size_t>(taken);
            empty_ = 0;
        }
        if (taken == 0 && ++empty_ == kEmptyReads) return failed("recv", 0, errno);
        return taken == -1 && errno != EINTR ? failed("recv", taken, errno) : kDone;
    }

    int fd_;
    std::span<char> line_;
    const ReceiveRules& rules_;
    const Budget& budget_;
    SeenAhead* ahead_;
    std::size_t& filled_;
    std::int64_t wait_ = 0;
    bool wait_holds_ = true;
    int empty_ = 0;
};

}  // namespace

Report receive_line(int fd, std::span<char> line, const ReceiveRules& rules, const Budget& budget,
                    SeenAhead* ahead, std::size_t& filled) noexcept {
    return LineReceiver(fd, line, rules, budget, ahead, filled).run();
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
    while (!step(report)) {
    }
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
