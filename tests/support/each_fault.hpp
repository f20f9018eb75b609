// each_fault.hpp - runs something again and again, each time with the next call of it failing.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "support/fault.hpp"

namespace fault {

inline bool hit_one_of(std::string_view calls) {
    return was_hit() &&
           (" " + std::string(calls) + " ").find(" " + last_hit() + " ") != std::string::npos;
}
inline bool hit_heap() { return hit_one_of("malloc calloc realloc"); }
inline bool hit_at(const std::string& path) { return last_about().starts_with(path); }

// A send to a mail server gives up at the sixth interruption in a row, the opening of the log at
// the tenth; nothing else counts them.
inline bool gives_up(const Fault& fault) {
    const int limit = hit_one_of("send")                                      ? 6
                      : hit_one_of("open") && hit_at("/var/opt/Quorvin/log/") ? 10
                                                                              : 99;
    return fault.mode == Mode::kInterrupt && fault.times >= limit;
}

// Whether nobody must notice: the call has to be made again, or the rest of it done. A short write
// is a full disk.
inline bool is_recovered(const Fault& fault) {
    if (!was_hit() || fault.mode == Mode::kFail) return !was_hit();
    return fault.mode == Mode::kHalf ? !hit_one_of("write pwrite pwrite64") : !gives_up(fault);
}

// Runs step() with the n-th call hit, then judge(fault), for n = 1, 2, ... until a run meets no
// fault, for each of `faults`. A call that fails does so with one of four errors, in turn. All of
// `wanted` must be met.
template <class Step, class Judge>
void each_fault(Step step, Judge judge, const std::set<std::string>& wanted,
                const std::vector<Fault>& faults = {
                    {Mode::kFail}, {Mode::kInterrupt, EINTR, 9}, {Mode::kHalf, ENOSPC}}) {
    constexpr int kErrors[] = {EIO, ENOSPC, ENOMEM, EMFILE};
    std::set<std::string> met;
    for (Fault fault : faults) {
        bool hit = true;
        for (unsigned n = 1; hit; ++n) {
            if (fault.mode == Mode::kFail) fault.error = kErrors[n % std::size(kErrors)];
            fail_nth(static_cast<int>(n), fault);
            step();
            hit = was_hit();
            met.insert((fault.mode == Mode::kHalf ? "short " : "") + last_hit());
            SCOPED_TRACE(testing::Message()
                         << "call " << n << ": " << last_hit() << " " << last_about().substr(0, 60)
                         << ", errno " << fault.error << ", " << fault.times << " times");
            EXPECT_EQ(heap_blocks(), 0);
            EXPECT_EQ(descriptors(), 0);
            const std::string kept = hit_one_of("unlink") ? last_about() : "";
            judge(fault);
            std::filesystem::remove(kept);
        }
    }
    EXPECT_TRUE(std::ranges::includes(met, wanted)) << testing::PrintToString(met);
}

}  // namespace fault
