// trace_handle.hpp - an open trace ring, and the layout of its file.
//
// The file is a ring of whole 8 KiB units: a 32-bit next-write offset in the host's byte order,
// then record bytes up to the ring's end, from where writing goes on at offset 4. A record is
//   "SSSS" time[4] zero[4] trace-point-text ["XXXX" data] "EEEE"
// without padding or lengths, and may break at any byte where the ring ends.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "common/brief_lock.hpp"

struct TraceHandle {
    std::int32_t fd;         // 0 without a file; 0 may be a real descriptor too, so see has_file()
    unsigned char* mapping;  // the whole ring, shared; null where it is written with pwrite()
    std::uint32_t size_kb;   // KiB, after rounding; 0 without a file
    std::uint32_t level;     // highest level written; 0: none
    // Beside g_cs, which begins and ends with any ring.
    ovrmail::common::BriefLock lock;

    [[nodiscard]] bool has_file() const noexcept { return size_kb != 0; }
    [[nodiscard]] std::size_t ring_bytes() const noexcept { return std::size_t{size_kb} * 1024; }
};

namespace ovrmail::log {

inline constexpr std::size_t kRingUnit = 8192;
inline constexpr std::uint32_t kRingStart = 4;  // offset of the first record byte

inline constexpr std::string_view kStartMarker = "SSSS";
inline constexpr std::string_view kDataMarker = "XXXX";
inline constexpr std::string_view kEndMarker = "EEEE";

// An offset outside the ring means a damaged header.
constexpr bool is_ring_offset(std::uint32_t offset, std::size_t ring_bytes) noexcept {
    return offset >= kRingStart && offset <= ring_bytes;
}

}  // namespace ovrmail::log
