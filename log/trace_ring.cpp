// trace_ring.cpp - Twrite: one record into the mapped ring, without a system call.
//
// Called at entry, exit and failures of nearly every function of a send, so it has to be cheap:
// a record that does not meet the end of the ring is laid down in one go. g_cs is held meanwhile.
#include <cerrno>
#include <cstring>
#include <ctime>
#include <string_view>

#include "common/unique_fd.hpp"
#include "log/trace_handle.hpp"
#include "trace.h"

namespace ovrmail::log {
namespace {

constexpr std::uint32_t kHighestLevel = 2;
constexpr long kRelockNs = 20'000'000;

// Holds g_cs and the ring. Topen sets g_cs up anew, also while other threads wait for it; such a
// waiter is never woken, so nobody waits longer than a moment before trying again. After a Tclose
// of another ring there is no g_cs to hold (EINVAL). The ring's own lock keeps records whole then.
class RecordLock {
public:
    explicit RecordLock(pthread_mutex_t& ring) noexcept : ring_(ring) {
        int rc = ::pthread_mutex_trylock(&g_cs);
        while (rc == EBUSY || rc == ETIMEDOUT) rc = wait();
        held_ = rc == 0;
        ::pthread_mutex_lock(&ring_);
    }
    ~RecordLock() {
        ::pthread_mutex_unlock(&ring_);
        if (held_) ::pthread_mutex_unlock(&g_cs);
    }
    RecordLock(const RecordLock&) = delete;
    RecordLock& operator=(const RecordLock&) = delete;

private:
    static int wait() noexcept {
        timespec until{};
        ::clock_gettime(CLOCK_REALTIME, &until);
        until.tv_nsec += kRelockNs;
        if (until.tv_nsec >= 1'000'000'000) {
            until.tv_nsec -= 1'000'000'000;
            ++until.tv_sec;
        }
        return ::pthread_mutex_timedlock(&g_cs, &until);
    }

    pthread_mutex_t& ring_;
    bool held_;
};

struct Record {
    std::uint32_t time;
    std::string_view point;
    std::string_view data;

    [[nodiscard]] std::size_t size() const noexcept {
        return kStartMarker.size() + sizeof time + sizeof(std::uint32_t) + point.size() +
               (data.empty() ? 0 : kDataMarker.size() + data.size()) + kEndMarker.size();
    }
};

// Hands the pieces of a record to `put` in order.
template <class Put>
void for_each_piece(const Record& record, Put put) noexcept {
    constexpr std::uint32_t kReserved = 0;
    put(kStartMarker.data(), kStartMarker.size());
    put(&record.time, sizeof record.time);
    put(&kReserved, sizeof kReserved);
    put(record.point.data(), record.point.size());
    if (!record.data.empty()) {
        put(kDataMarker.data(), kDataMarker.size());
        put(record.data.data(), record.data.size());
    }
    put(kEndMarker.data(), kEndMarker.size());
}

// The part of the ring behind its header. Pieces are at most half the ring long.
struct Ring {
    unsigned char* bytes;
    std::size_t size;

    std::size_t write_wrapping(std::size_t offset, const void* piece, std::size_t n) noexcept {
        if (offset + n < size) {
            std::memcpy(bytes + offset, piece, n);
            return offset + n;
        }
        // Kept: a piece that ends exactly at the end of the ring leaves the offset at 4.
        const std::size_t first = size - offset;
        std::memcpy(bytes + offset, piece, first);
        std::memcpy(bytes + kRingStart, static_cast<const char*>(piece) + first, n - first);
        return kRingStart + n - first;
    }

    void put(const Record& record) noexcept {
        std::uint32_t stored = 0;
        std::memcpy(&stored, bytes, sizeof stored);
        if (!is_ring_offset(stored, size)) return;
        std::size_t offset = stored;
        if (offset + record.size() < size) {
            for_each_piece(record, [&](const void* piece, std::size_t n) {
                std::memcpy(bytes + offset, piece, n);
                offset += n;
            });
        } else {
            for_each_piece(record, [&](const void* piece, std::size_t n) {
                offset = write_wrapping(offset, piece, n);
            });
        }
        stored = static_cast<std::uint32_t>(offset);
        std::memcpy(bytes, &stored, sizeof stored);
    }
};

}  // namespace
}  // namespace ovrmail::log

using namespace ovrmail;

std::int32_t Twrite(TraceHandle* trace, std::uint32_t level, const char* point, const void* data,
                    std::uint32_t length) noexcept {
    if (trace == nullptr || level > log::kHighestLevel) return -1;
    if (trace->level == 0 || trace->level < level || !trace->has_file()) return 0;

    const common::ErrnoKeeper keep;
    log::Ring ring{trace->mapping, trace->ring_bytes()};
    const std::size_t longest = ring.size / 2;
    log::Record record{0, "", {}};
    if (point != nullptr) record.point = {point, ::strnlen(point, longest)};
    if (data != nullptr) {
        record.data = {static_cast<const char*>(data), length < longest ? length : longest};
    }
    const log::RecordLock lock(trace->lock);
    record.time = static_cast<std::uint32_t>(::time(nullptr));
    ring.put(record);
    return 0;
}
