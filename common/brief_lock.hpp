// brief_lock.hpp - a lock that is held for a few instructions, or for one write to a file.
#pragma once

#include <atomic>
#include <ctime>

namespace ovrmail::common {

// All zero bytes are a free one. Waiting threads sleep between their attempts, so that a holder of
// lower priority gets its turn.
class BriefLock {
public:
    void lock() noexcept {
        for (int attempt = 0; taken_.exchange(true, std::memory_order_acquire); ++attempt) {
            constexpr timespec kPause{0, 50'000};
            if (attempt >= kSpins) ::nanosleep(&kPause, nullptr);
        }
    }
    void unlock() noexcept { taken_.store(false, std::memory_order_release); }

private:
    static constexpr int kSpins = 100;
    std::atomic<bool> taken_;
};

// Holds one until the end of the scope.
class BriefGuard {
public:
    explicit BriefGuard(BriefLock& lock) noexcept : lock_(lock) { lock_.lock(); }
    ~BriefGuard() { lock_.unlock(); }
    BriefGuard(const BriefGuard&) = delete;
    BriefGuard& operator=(const BriefGuard&) = delete;

private:
    BriefLock& lock_;
};

}  // namespace ovrmail::common
