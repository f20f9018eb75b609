// trace_bulk.hpp - for a run of equal records of which the ring keeps only the last ones: those
// that would be overwritten at once need not be written.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "trace.h"

namespace ovrmail::log {

// The bytes that the ring has for records; 0 without a ring.
std::size_t record_room(const TraceHandle* trace) noexcept;

// The bytes of a record with `data` bytes of data; 0 when the level of the ring keeps it out.
std::size_t record_size(const TraceHandle* trace, std::uint32_t level, std::string_view point,
                        std::size_t data) noexcept;

// Moves the ring on by `bytes` of records, which the caller's next record_room() bytes overwrite.
void pass_over(TraceHandle* trace, std::uint64_t bytes) noexcept;

}  // namespace ovrmail::log
