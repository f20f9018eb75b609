// lines.hpp - the line engine of the SMTP and the POP3 client: sends a buffer, receives a line,
// each within a time budget. report.hpp defines how they end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "net/report.hpp"
#include "net/socket_io.hpp"

namespace ovrmail::net {

// The client's clock.
struct Budget {
    std::int64_t (*seconds_left)(void* clock) noexcept;  // never negative
    bool (*is_spent)(void* clock) noexcept;  // called after each part of a send; may be null
    void (*before_wait)() noexcept;          // called whenever the network has to be waited for
    void* clock;
};

struct ReceiveRules {
    LineEnd end;
    bool wait_shrinks;  // true: every wait is what is left now; false: what was left when the line
                        // began, or after the last interruption or empty read
};

// Reads one line into `line`, which is cleared first, and takes nothing behind it from the socket.
// A line that does not fit ends where `line` is full. `filled`: the bytes read, also after a
// failure. The sixth empty read in a row is the end of the connection. `ahead`, which may be null,
// remembers what is seen of later lines of the same reply.
Report receive_line(int fd, std::span<char> line, const ReceiveRules& rules, const Budget& budget,
                    SeenAhead* ahead, std::size_t& filled) noexcept;

struct SendRules {
    int empty_limit;      // sends that take nothing
    int interrupt_limit;  // sends that a signal interrupts; 0: any number
    Follow follow;
};

// Sends a buffer part by part.
class Sender {
public:
    Sender(int fd, std::span<const char> bytes, const SendRules& rules,
           const Budget& budget) noexcept
        : fd_(fd), rest_(bytes), rules_(rules), budget_(budget) {}

    // Sends until the kernel has taken some more. True when the sending has ended; `report` says
    // how.
    [[nodiscard]] bool step(Report& report) noexcept;

    // Sends all of it.
    [[nodiscard]] Report run() noexcept;

    [[nodiscard]] std::size_t left() const noexcept { return rest_.size(); }

    // Starts the counts of empty and of interrupted sends again.
    void begin_unit() noexcept { empty_ = interrupted_ = 0; }

private:
    Report go_on(ssize_t sent, int error) noexcept;
    Report on_error(int error) noexcept;
    Report wait_for_room() noexcept;

    int fd_;
    std::span<const char> rest_;
    SendRules rules_;
    Budget budget_;
    int empty_ = 0;
    int interrupted_ = 0;
    bool took_part_ = false;
};

}  // namespace ovrmail::net
