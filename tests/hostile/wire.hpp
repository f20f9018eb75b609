// wire.hpp - a connection in memory and in virtual time: a wait takes no time, but moves the clock.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <deque>
#include <limits>
#include <string>

namespace hostile {

using Ms = std::int64_t;
inline constexpr Ms kNever = std::numeric_limits<Ms>::max() / 2;

enum class End { kNone, kClosed, kReset };

// How the other end reads: what the kernel takes at once, how much it has room for, and when there
// is room again once that is used up. After so many bytes it resets the connection.
struct Reader {
    std::size_t at_once = SIZE_MAX;
    std::size_t room = SIZE_MAX;
    Ms refill = 0;
    std::size_t resets_after = SIZE_MAX;
};

class Wire {
public:
    // The other end. What is delivered arrives in the order of these calls.
    void deliver(Ms at, std::string bytes, End end = End::kNone);
    void set_reader(const Reader& reader);

    // This end. Waits move the clock; the others are calls that do not block, -1 with errno.
    bool wait_readable(Ms& now, Ms longest);
    bool wait_writable(Ms& now, Ms longest);
    ssize_t receive(Ms now, void* out, std::size_t size, bool peek);
    ssize_t send(Ms now, std::size_t size);

private:
    struct Arrival {
        Ms at;
        std::string bytes;
        End end;
    };
    void arrive(Ms now);
    void refill(Ms now);

    std::deque<Arrival> coming_;
    std::string here_;
    std::size_t taken_ = 0;  // of here_
    End end_ = End::kNone;
    bool reported_ = false;  // the reset has been
    Reader reader_;
    std::size_t room_ = SIZE_MAX;
    Ms refill_at_ = 0;
};

}  // namespace hostile
