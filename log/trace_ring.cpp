// trace_ring.cpp - Twrite: one record into the ring.
//
// Called at entry, exit and failures of nearly every function of a send, so it has to be fast: a
// record in a mapped ring takes no system call. In a ring that is not mapped (see trace.cpp) it
// takes three, and is lost when the disk is full. g_cs is held meanwhile. No state.
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <string_view>
#include <utility>

#include "common/unique_fd.hpp"
#include "log/trace_bulk.hpp"
#include "log/trace_handle.hpp"
#include "trace.h"

namespace ovrmail::log {
namespace {

constexpr std::uint32_t kHighestLevel = 2;
constexpr long kRelockNs = 20'000'000;

// Holds g_cs and the ring's lock. Topen initialises g_cs again, also while other threads wait for
// it, and such a thread is never woken: each wait is therefore short and tried again. After a
// Tclose of another ring g_cs cannot be locked (EINVAL); the ring's own lock then keeps records
// whole.
class RecordLock {
public:
    explicit RecordLock(common::BriefLock& ring) noexcept : ring_(ring) {
        int rc = ::pthread_mutex_trylock(&g_cs);
        while (rc == EBUSY || rc == ETIMEDOUT) rc = wait();
        held_ = rc == 0;
        ring_.lock();
    }
    ~RecordLock() {
        ring_.unlock();
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

    common::BriefLock& ring_;
    bool held_;
};

struct Record {
    std::uint32_t time;
    std::string_view point;
    std::string_view data;
};

constexpr std::uint32_t kReserved = 0;

// Hands the pieces of a record, which live as long as the record, to `put` in order.
template <class Put>
void for_each_piece(const Record& record, Put put) noexcept {
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

class MappedRing {
public:
    explicit MappedRing(const TraceHandle& trace) noexcept : bytes_(trace.mapping) {}

    [[nodiscard]] std::uint32_t load_offset() const noexcept {
        std::uint32_t offset = 0;
        std::memcpy(&offset, bytes_, sizeof offset);
        return offset;
    }
    void lay(std::size_t offset, const void* piece, std::size_t n) noexcept {
        std::memcpy(bytes_ + offset, piece, n);
    }
    void store_offset(std::uint32_t offset) noexcept {
        std::memcpy(bytes_, &offset, sizeof offset);
    }

private:
    unsigned char* bytes_;
};

// Adjacent pieces are written together. After a failure the offset is not written, so the ring
// keeps the records that it has.
class WrittenRing {
public:
    explicit WrittenRing(const TraceHandle& trace) noexcept : fd_(trace.fd) {}

    [[nodiscard]] std::uint32_t load_offset() const noexcept {
        std::uint32_t offset = 0;
        return ::pread64(fd_, &offset, sizeof offset, 0) == sizeof offset ? offset : 0;
    }
    void lay(std::size_t offset, const void* piece, std::size_t n) noexcept {
        if (n == 0) return;
        if (offset != start_ + size_) write_out();
        if (count_ == 0) start_ = offset;
        pieces_[count_++] = {const_cast<void*>(piece), n};
        size_ += n;
    }
    void store_offset(std::uint32_t offset) noexcept {
        write_out();
        if (whole_) whole_ = ::pwrite64(fd_, &offset, sizeof offset, 0) == sizeof offset;
    }

private:
    void write_out() noexcept {
        const auto size = static_cast<ssize_t>(std::exchange(size_, 0));
        const auto count = static_cast<int>(std::exchange(count_, 0));
        if (count == 0 || !whole_) return;
        whole_ = ::pwritev64(fd_, pieces_.data(), count, static_cast<off64_t>(start_)) == size;
    }

    int fd_;
    std::array<iovec, 8> pieces_;  // a record has at most seven, one of them split in two
    std::size_t count_ = 0;
    std::size_t start_ = 0;
    std::size_t size_ = 0;
    bool whole_ = true;
};

// Puts a record behind the last one. Its pieces are at most half as long as the ring.
template <class Ring>
void put(Ring ring, std::size_t size, const Record& record) noexcept {
    const std::uint32_t stored = ring.load_offset();
    if (!is_ring_offset(stored, size)) return;
    std::size_t offset = stored;
    for_each_piece(record, [&](const void* piece, std::size_t n) {
        if (offset + n < size) {
            ring.lay(offset, piece, n);
            offset += n;
            return;
        }
        // Kept: after a piece that ends exactly at the end of the ring the offset is 4. Readers of
        // rings rely on it.
        const std::size_t first = size - offset;
        ring.lay(offset, piece, first);
        ring.lay(kRingStart, static_cast<const char*>(piece) + first, n - first);
        offset = kRingStart + n - first;
    });
    ring.store_offset(static_cast<std::uint32_t>(offset));
}

template <class Ring>
void move_on(Ring ring, std::size_t size, std::uint64_t bytes) noexcept {
    const std::uint32_t stored = ring.load_offset();
    if (!is_ring_offset(stored, size)) return;
    const std::uint64_t room = size - kRingStart;
    const std::uint64_t place = (stored - kRingStart + bytes) % room;
    ring.store_offset(static_cast<std::uint32_t>(kRingStart + place));
}

bool takes(const TraceHandle* trace, std::uint32_t level) noexcept {
    return trace != nullptr && trace->level >= level && trace->level != 0 && trace->has_file();
}

}  // namespace

std::size_t record_room(const TraceHandle* trace) noexcept {
    return takes(trace, 0) ? trace->ring_bytes() - kRingStart : 0;
}

std::size_t record_size(const TraceHandle* trace, std::uint32_t level, std::string_view point,
                        std::size_t data) noexcept {
    if (!takes(trace, level)) return 0;
    const std::size_t longest = trace->ring_bytes() / 2;
    const std::size_t with_data = data != 0 ? kDataMarker.size() + std::min(data, longest) : 0;
    return kStartMarker.size() + sizeof Record::time + sizeof kReserved + point.size() + with_data +
           kEndMarker.size();
}

void pass_over(TraceHandle* trace, std::uint64_t bytes) noexcept {
    if (!takes(trace, 0) || bytes == 0) return;
    const common::ErrnoKeeper keep;
    const RecordLock lock(trace->lock);
    if (trace->mapping != nullptr)
        move_on(MappedRing(*trace), trace->ring_bytes(), bytes);
    else
        move_on(WrittenRing(*trace), trace->ring_bytes(), bytes);
}

}  // namespace ovrmail::log

using namespace ovrmail;

std::int32_t Twrite(TraceHandle* trace, std::uint32_t level, const char* point, const void* data,
                    std::uint32_t length) noexcept {
    if (trace == nullptr || level > log::kHighestLevel) return -1;
    if (!log::takes(trace, level)) return 0;

    const common::ErrnoKeeper keep;
    const std::size_t size = trace->ring_bytes();
    const std::size_t longest = size / 2;
    log::Record record{0, "", {}};
    if (point != nullptr) record.point = {point, ::strnlen(point, longest)};
    if (data != nullptr) {
        record.data = {static_cast<const char*>(data), length < longest ? length : longest};
    }
    const log::RecordLock lock(trace->lock);
    record.time = static_cast<std::uint32_t>(::time(nullptr));
    if (trace->mapping != nullptr)
        log::put(log::MappedRing(*trace), size, record);
    else
        log::put(log::WrittenRing(*trace), size, record);
    return 0;
}
