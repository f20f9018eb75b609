// wire.cpp - see wire.hpp.
#include "hostile/wire.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace hostile {

void Wire::deliver(Ms at, std::string bytes, End end) {
    const Ms behind = coming_.empty() ? at : std::max(at, coming_.back().at);
    coming_.push_back({behind, std::move(bytes), end});
}

void Wire::set_reader(const Reader& reader) {
    reader_ = reader;
    room_ = reader.room;
}

void Wire::arrive(Ms now) {
    for (; !coming_.empty() && coming_.front().at <= now; coming_.pop_front()) {
        if (end_ != End::kNone) continue;
        if (taken_ == here_.size()) here_.clear(), taken_ = 0;
        here_ += coming_.front().bytes;
        end_ = coming_.front().end;
    }
}

void Wire::refill(Ms now) {
    if (room_ == 0 && now >= refill_at_) room_ = reader_.room;
}

bool Wire::wait_readable(Ms& now, Ms longest) {
    const Ms until = now + longest;
    for (;;) {
        arrive(now);
        if (taken_ < here_.size() || end_ != End::kNone) return true;
        if (coming_.empty() || coming_.front().at > until) return now = until, false;
        now = coming_.front().at;
    }
}

bool Wire::wait_writable(Ms& now, Ms longest) {
    const Ms until = now + longest;
    arrive(now);
    refill(now);
    if (room_ != 0 || end_ == End::kReset) return true;
    const auto reset = std::ranges::find(coming_, End::kReset, &Arrival::end);
    const Ms ready = reset != coming_.end() ? std::min(refill_at_, reset->at) : refill_at_;
    now = std::min(ready, until);
    return ready <= until;
}

ssize_t Wire::receive(Ms now, void* out, std::size_t size, bool peek) {
    arrive(now);
    const std::size_t count = std::min(size, here_.size() - taken_);
    if (count == 0) {
        if (end_ == End::kClosed || (end_ == End::kReset && std::exchange(reported_, true)))
            return 0;
        errno = end_ == End::kReset ? ECONNRESET : EAGAIN;
        return -1;
    }
    std::memcpy(out, here_.data() + taken_, count);
    if (!peek) taken_ += count;
    return static_cast<ssize_t>(count);
}

ssize_t Wire::send(Ms now, std::size_t size) {
    arrive(now);
    refill(now);
    if (end_ == End::kReset) {
        errno = std::exchange(reported_, true) ? EPIPE : ECONNRESET;
        return -1;
    }
    if (end_ == End::kClosed) end_ = End::kReset;  // what answers bytes for nobody
    const std::size_t count = std::min({size, room_, reader_.at_once, reader_.resets_after});
    if (count == 0) return errno = EAGAIN, -1;
    if ((reader_.resets_after -= count) == 0) end_ = End::kReset;
    room_ -= count;
    if (room_ == 0) refill_at_ = now + reader_.refill;
    return static_cast<ssize_t>(count);
}

}  // namespace hostile
